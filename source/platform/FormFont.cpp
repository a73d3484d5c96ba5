#include "FormFont.h"

#include <QFile>
#include <QFontDatabase>
#include <QLabel>
#include <QStringList>
#include <algorithm>

namespace {

// Whether Tahoma is the free face with its metrics from Debian's fonts-wine, which keeps its
// faces outside fontconfig's folders, so that only the program that loads them sees them.
bool TahomaFromWine() {
    static const bool loaded = [] {
        if (QFontDatabase::hasFamily(QStringLiteral("Tahoma")))
            return false;
        const QString folder = QStringLiteral("/usr/share/wine/fonts/");
        if (!QFontDatabase::hasFamily(QStringLiteral("MS Sans Serif")))
            QFontDatabase::addApplicationFont(folder + QStringLiteral("ms_sans_serif.ttf"));
        return QFontDatabase::addApplicationFont(folder + QStringLiteral("tahoma.ttf")) >= 0;
    }();
    return loaded;
}

} // namespace

QFont FormFont(const QString& face, qreal points, bool bold) {
    QStringList families{face};
    if (face == u"Tahoma") {
        // fonts-wine's Tahoma Bold has the bold face's widths but the regular face's thin strokes.
        // The condensed bold comes within 2 % of those widths and looks bold.
        if (bold && TahomaFromWine())
            families.prepend(QStringLiteral("DejaVu Sans Condensed"));
        families << QStringLiteral("DejaVu Sans Condensed") << QStringLiteral("Liberation Sans Narrow");
    } else {
        TahomaFromWine();
        families << QStringLiteral("DejaVu Sans");
    }
    QFont font;
    font.setFamilies(families);
    font.setPointSizeF(points);
    font.setBold(bold);
    return font;
}

void WidenToCaption(QLabel* label) {
    label->resize(std::max(label->width(), label->sizeHint().width()), label->height());
}
