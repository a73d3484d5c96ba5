#pragma once

#include <QString>
#include <QStringView>

// The absolute URL that a link's href stands for on a page whose base URL is `base` (absolute, as
// the page was loaded or as its <base href> gives it), as a browser's href property gives it: an
// href that names a scheme stays as written; a relative one is resolved against the base, with its
// percent escapes kept as the link gives them. Only what a URL cannot hold as it is (blanks, quotes,
// angle brackets, controls, non-ASCII characters) is escaped, as UTF-8.
QString ResolveLinkTarget(const QString& base, QStringView href);

// Whether an href begins with a scheme ("http:", "javascript:"), and so is its own target.
bool HasScheme(QStringView href);

// The scheme and authority of an absolute URL ("http://host:80"), which every relative href that
// does not begin with "//" keeps; empty for a URL without an authority.
QString OriginOf(const QString& absoluteUrl);
