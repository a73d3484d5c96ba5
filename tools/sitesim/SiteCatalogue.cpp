#include "SiteCatalogue.h"

#include <QStringList>

namespace {

struct MainEntry {
    const char* name;
    const char* subs; // separated by '|'
};

// Both sites share most of their tree, as the real ones did; a few names differ by country.
const MainEntry kUsMains[] = {
    {"Antiques", "Antiquities|Architectural & Garden|Asian Antiques|Books & Manuscripts|Decorative Arts|"
                 "Furniture|Maps, Atlases & Globes|Musical Instruments|Primitives|Rugs & Carpets|Silver"},
    {"Art", "Drawings|Folk Art|Mixed Media|Paintings|Photographs|Posters|Prints|Sculptures"},
    {"Books", "Antiquarian & Collectible|Audiobooks|Children's Books|Cookbooks|Fiction Books|Magazine "
              "Back Issues|Nonfiction Books|Textbooks & Education"},
    {"Cameras & Photo", "Digital Cameras|Film Cameras|Lenses & Filters|Flashes & Accessories|Tripods & "
                        "Supports|Vintage Movie & Photo"},
    {"Clothing, Shoes & Accessories", "Men's Clothing|Men's Shoes|Women's Clothing|Women's Shoes|Handbags & "
                                      "Bags|Infants & Toddlers|Uniforms|Vintage|Wedding Apparel"},
    {"Coins & Paper Money", "Bullion|Coins: US|Coins: Ancient|Coins: World|Exonumia|Paper Money: US|Paper "
                            "Money: World|Publications & Supplies|Stocks & Bonds, Scripophily"},
    {"Collectibles", "Advertising|Animals|Animation Art & Characters|Arcade, Jukeboxes & Pinball|Autographs|"
                     "Banks, Registers & Vending|Bottles & Insulators|Breweriana, Beer|Casino|Clocks|Comics|"
                     "Decorative Collectibles|Disneyana|Kitchen & Home|Militaria"},
    {"Computers & Networking", "Apple, Macintosh|Desktop PCs|Laptops, Notebooks|Monitors & Projectors|"
                               "Networking|Printers|Software"},
    {"Jewelry & Watches", "Bracelets|Earrings|Loose Beads|Loose Diamonds & Gemstones|Men's Jewelry|Necklaces "
                          "& Pendants|Rings|Vintage & Antique|Watches"},
    {"Music", "Cassettes|CDs|Records|Sheet Music & Song Books|Music Memorabilia"},
    {"Sports Mem, Cards & Fan Shop",
     "Autographs-Original|Cards|Fan Apparel & Souvenirs|Game Used Memorabilia"},
    {"Toys & Hobbies", "Action Figures|Beanbag Plush, Beanie Babies|Diecast, Toy Vehicles|Electronic, "
                       "Battery, Wind-Up|Games|Model RR, Trains|Models, Kits|Radio Control|Slot Cars|Toy "
                       "Soldiers|Vintage, Antique Toys"},
};

const MainEntry kUkMains[] = {
    {"Antiques", "Antiquities|Architectural Antiques|Asian & Oriental Antiques|Clocks|Furniture|Maps & "
                 "Atlases|Metalware|Silver|Rugs & Carpets|Textiles & Linens"},
    {"Art", "Drawings|Paintings|Photographs|Posters|Prints|Sculpture"},
    {"Books, Comics & Magazines", "Antiquarian & Collectable|Children's Books|Comics|Fiction|Magazines|"
                                  "Non-Fiction|Textbooks"},
    {"Cameras & Photography", "Digital Cameras|Film Cameras|Lenses|Camera Accessories|Vintage Cameras"},
    {"Clothes, Shoes & Accessories", "Men's Clothing|Men's Shoes|Women's Clothing|Women's Shoes|Bags & "
                                     "Handbags|Children's Clothing|Wedding Clothing"},
    {"Coins", "Ancient|British|Bullion|Coin Accessories|Hammered|World Coins"},
    {"Collectables", "Advertising|Animals|Autographs|Bottles|Breweriana|Casino|Comics|Decorative Ornaments|"
                     "Disneyana|Kitchenalia|Militaria|Pens & Writing|Scientific Collectables|Tobacciana"},
    {"Computing", "Apple Computers|Desktop PCs|Laptops|Monitors|Networking|Printers|Software"},
    {"Jewellery & Watches", "Bracelets|Earrings|Loose Beads|Men's Jewellery|Necklaces & Pendants|Rings|"
                            "Vintage & Antique Jewellery|Watches"},
    {"Mobile & Home Phones", "Mobile Phones|Mobile Accessories|Home Phones|SIM Cards"},
    {"Stamps", "Great Britain|Commonwealth|Europe|Thematics|Covers|Stamp Accessories"},
    {"Toys & Games", "Action Figures|Board & Traditional Games|Die-cast Toys|Model Railways & Trains|Models "
                     "& Kits|Radio Controlled|Soft Toys|Vintage & Classic Toys"},
};

} // namespace

quint64 SiteCatalogue::Mix(quint64 value) {
    value += 0x9e3779b97f4a7c15ULL;
    value = (value ^ (value >> 30)) * 0xbf58476d1ce4e5b9ULL;
    value = (value ^ (value >> 27)) * 0x94d049bb133111ebULL;
    return value ^ (value >> 31);
}

QString SiteCatalogue::Slug(const QString& name) {
    QString slug;
    bool pendingDash = false;
    for (const QChar c : name) {
        if (c.isLetterOrNumber()) {
            if (pendingDash && !slug.isEmpty())
                slug += QLatin1Char('-');
            pendingDash = false;
            slug += c;
        } else if (c != QLatin1Char('\'')) {
            pendingDash = true;
        }
    }
    return slug;
}

void SiteCatalogue::Add(const QString& mainName, const QStringList& subNames) {
    const QString base = QStringLiteral("http://") + ListingsHost() + QLatin1Char('/');
    SiteMainCategory main;
    main.name = mainName;
    // Room for 999 sub-categories behind each main id keeps every id of a site unique.
    main.id = m_nextId += 1000;
    main.url = base + Slug(mainName) + QStringLiteral("_W0QQsacatZ") + QString::number(main.id);
    const bool uk = m_site.endsWith(QLatin1String(".uk"));
    for (qsizetype j = 0; j < subNames.size(); ++j) {
        SiteSubCategory sub;
        sub.name = subNames[j];
        sub.id = main.id + j + 1;
        sub.url = base + Slug(mainName).section(QLatin1Char('-'), 0, 0) + QLatin1Char('-') + Slug(sub.name) +
                  QStringLiteral("_W0QQsacatZ") + QString::number(sub.id);
        const quint64 h = Mix(quint64(sub.id) * 2 + (uk ? 1 : 0));
        // A spread of sizes: many one-page listings, most up to 40 pages, two very long ones
        // so that every auction limit can be reached inside one sub-category.
        const int ordinal = int(sub.id % 1000) + int(m_mains.size()) * 7;
        if (m_mains.size() == 1 && j == 1)
            sub.pageCount = 250;
        else if (m_mains.size() == 3 && j == 0)
            sub.pageCount = 120;
        else if (ordinal % 6 == 2)
            sub.pageCount = 1;
        else
            sub.pageCount = 1 + int(h % 40);
        sub.recordCount = (sub.pageCount - 1) * 50 + 1 + int((h >> 20) % 50);
        main.subs.append(sub);
    }
    m_mains.append(main);
}

SiteCatalogue SiteCatalogue::Builtin(const QString& site) {
    SiteCatalogue catalogue;
    catalogue.m_site = site;
    catalogue.m_nextId = site.endsWith(QLatin1String(".uk")) ? 500000 : 10000;
    const bool uk = site.endsWith(QLatin1String(".uk"));
    for (const MainEntry& entry : uk ? kUkMains : kUsMains)
        catalogue.Add(QString::fromUtf8(entry.name), QString::fromUtf8(entry.subs).split(QLatin1Char('|')));
    return catalogue;
}

SiteCatalogue SiteCatalogue::Generated(const QString& site, int mains, int subs) {
    SiteCatalogue catalogue;
    catalogue.m_site = site;
    catalogue.m_nextId = site.endsWith(QLatin1String(".uk")) ? 500000 : 10000;
    const auto& names = site.endsWith(QLatin1String(".uk")) ? kUkMains : kUsMains;
    const int nameCount = int(std::size(names));
    for (int i = 0; i < mains; ++i) {
        const QString mainName = QString::fromUtf8(names[i % nameCount].name) +
                                 (i < nameCount ? QString() : QStringLiteral(" %1").arg(i / nameCount + 1));
        const QStringList known = QString::fromUtf8(names[i % nameCount].subs).split(QLatin1Char('|'));
        QStringList subNames;
        for (int j = 0; j < subs; ++j)
            subNames.append(
                j < known.size()
                    ? known[j]
                    : QStringLiteral("%1 Lot %2").arg(known[j % known.size()]).arg(j / known.size() + 1));
        catalogue.Add(mainName, subNames);
    }
    return catalogue;
}

const SiteMainCategory* SiteCatalogue::FindMain(qint64 id) const {
    for (const SiteMainCategory& main : m_mains)
        if (main.id == id)
            return &main;
    return nullptr;
}

const SiteSubCategory* SiteCatalogue::FindSub(qint64 id) const {
    if (const SiteMainCategory* main = FindMain(id - id % 1000))
        for (const SiteSubCategory& sub : main->subs)
            if (sub.id == id)
                return &sub;
    return nullptr;
}

QStringList SiteCatalogue::TreeLines() const {
    const QString root = QStringLiteral("Select Category");
    const QChar tab = QLatin1Char('\t');
    const QChar sep = QLatin1Char('~');
    QStringList lines{root + tab + QStringLiteral("Root")};
    for (const SiteMainCategory& main : m_mains) {
        lines.append(root + sep + main.name + tab + main.url);
        for (const SiteSubCategory& sub : main.subs)
            lines.append(root + sep + main.name + sep + sub.name + tab + sub.url +
                         QStringLiteral("QQsorecordsperpageZ50"));
    }
    return lines;
}
