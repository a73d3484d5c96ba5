#pragma once

#include "catalogue/modRetreiver.h"

#include <QString>
#include <optional>

// Where a refresh reads the categories: the site's category pages, or the site's Taxonomy API.
enum class CategorySource { Pages, Api };

// The source of the next refreshes; nothing (the default) means the API when the user has given
// application keys, else the pages.
void SetRefreshSource(std::optional<CategorySource> source);
CategorySource RefreshSource();

// The address a refresh through the API starts from, for its messages.
QString ApiCategoryTreeAddress(const QString& siteLabel);

// The refresh's crawl through the API: the default category tree of the site's marketplace, its
// top level as main categories and their children as sub-categories, each with the Browse search
// address of its auctions, added to the open category file as the page crawl adds its finds, with
// the same captions, yields and stops. A failure of the service is told in its own words.
CrawlResult CrawlCategoriesThroughApi(const QString& siteLabel);
