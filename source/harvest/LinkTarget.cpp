#include "LinkTarget.h"

#include <QList>
#include <QStringList>

namespace {

struct UrlParts {
    QStringView scheme; // without ':'
    QStringView authority;
    QStringView path;
    QStringView query;
    QStringView fragment;
    bool hasAuthority = false;
    bool hasQuery = false;
    bool hasFragment = false;
};

bool IsSchemeChar(QChar c, bool first) {
    const char16_t u = c.unicode();
    const bool alpha = (u >= 'a' && u <= 'z') || (u >= 'A' && u <= 'Z');
    return first ? alpha : alpha || (u >= '0' && u <= '9') || u == '+' || u == '-' || u == '.';
}

qsizetype SchemeLength(QStringView url) {
    for (qsizetype i = 0; i < url.size(); ++i) {
        if (url[i] == u':')
            return i;
        if (!IsSchemeChar(url[i], i == 0))
            return -1;
    }
    return -1;
}

// The split of the generic URI syntax, without scheme when `scheme` is false.
UrlParts Split(QStringView url, bool withScheme) {
    UrlParts parts;
    if (withScheme) {
        const qsizetype colon = SchemeLength(url);
        if (colon > 0) {
            parts.scheme = url.left(colon);
            url = url.mid(colon + 1);
        }
    }
    const qsizetype hash = url.indexOf(u'#');
    if (hash >= 0) {
        parts.hasFragment = true;
        parts.fragment = url.mid(hash + 1);
        url = url.left(hash);
    }
    const qsizetype question = url.indexOf(u'?');
    if (question >= 0) {
        parts.hasQuery = true;
        parts.query = url.mid(question + 1);
        url = url.left(question);
    }
    if (url.startsWith(u"//")) {
        parts.hasAuthority = true;
        url = url.mid(2);
        const qsizetype slash = url.indexOf(u'/');
        parts.authority = slash < 0 ? url : url.left(slash);
        url = slash < 0 ? QStringView() : url.mid(slash);
    }
    parts.path = url;
    return parts;
}

// Removes "." and ".." segments as the generic syntax says.
QString RemoveDotSegments(const QString& path) {
    QStringList output;
    qsizetype i = 0;
    const bool absolute = path.startsWith(u'/');
    if (absolute)
        i = 1;
    const QList<QStringView> segments = QStringView(path).mid(i).split(u'/');
    for (qsizetype n = 0; n < segments.size(); ++n) {
        const QStringView segment = segments[n];
        const bool last = n + 1 == segments.size();
        if (segment == u"." || segment == u"%2e" || segment == u"%2E") {
            if (last)
                output.append(QString());
        } else if (segment == u".." || segment.compare(u"%2e%2e", Qt::CaseInsensitive) == 0 ||
                   segment.compare(u".%2e", Qt::CaseInsensitive) == 0 ||
                   segment.compare(u"%2e.", Qt::CaseInsensitive) == 0) {
            if (!output.isEmpty())
                output.removeLast();
            if (last)
                output.append(QString());
        } else {
            output.append(segment.toString());
        }
    }
    const QString joined = output.join(u'/');
    return absolute ? u'/' + joined : joined;
}

// Escapes what a URL cannot hold as it is; '%' and every escape stay as written.
void AppendEscaped(QString& out, QStringView text) {
    static const char hex[] = "0123456789ABCDEF";
    for (qsizetype i = 0; i < text.size(); ++i) {
        const char16_t u = text[i].unicode();
        if (u > 0x20 && u < 0x7F && u != '"' && u != '<' && u != '>' && u != '`') {
            out.append(text[i]);
            continue;
        }
        const bool pair = text[i].isHighSurrogate() && i + 1 < text.size() && text[i + 1].isLowSurrogate();
        // A lone surrogate is no character; toUtf8 makes it U+FFFD.
        const QByteArray bytes = text.mid(i, pair ? 2 : 1).toUtf8();
        if (pair)
            ++i;
        for (const char byte : bytes) {
            out.append(u'%');
            out.append(QChar(hex[(static_cast<unsigned char>(byte) >> 4) & 0xF]));
            out.append(QChar(hex[static_cast<unsigned char>(byte) & 0xF]));
        }
    }
}

} // namespace

bool HasScheme(QStringView href) {
    return SchemeLength(href) > 0;
}

QString OriginOf(const QString& absoluteUrl) {
    const UrlParts parts = Split(absoluteUrl, true);
    if (!parts.hasAuthority)
        return {};
    return parts.scheme.toString() + QStringLiteral("://") + parts.authority.toString();
}

QString ResolveLinkTarget(const QString& base, QStringView href) {
    if (HasScheme(href))
        return href.toString();
    // A browser drops tabs and line breaks anywhere in an address, and reads '\' as '/' before
    // the query.
    QString reference;
    reference.reserve(href.size());
    bool inQuery = false;
    for (const QChar c : href) {
        if (c == u'\t' || c == u'\n' || c == u'\r')
            continue;
        inQuery = inQuery || c == u'?' || c == u'#';
        reference.append(c == u'\\' && !inQuery ? QChar(u'/') : c);
    }
    const UrlParts b = Split(base, true);
    const UrlParts r = Split(reference, false);

    QString authority;
    bool hasAuthority = b.hasAuthority;
    QString path;
    QStringView query = r.query;
    bool hasQuery = r.hasQuery;
    if (r.hasAuthority) {
        hasAuthority = true;
        authority = r.authority.toString();
        path = RemoveDotSegments(r.path.toString());
    } else {
        authority = b.authority.toString();
        if (r.path.isEmpty()) {
            path = b.path.toString();
            if (!r.hasQuery) {
                query = b.query;
                hasQuery = b.hasQuery;
            }
        } else if (r.path.startsWith(u'/')) {
            path = RemoveDotSegments(r.path.toString());
        } else {
            const QString merged =
                b.hasAuthority && b.path.isEmpty()
                    ? u'/' + r.path.toString()
                    : b.path.left(b.path.lastIndexOf(u'/') + 1).toString() + r.path.toString();
            path = RemoveDotSegments(merged);
        }
    }
    if (hasAuthority && path.isEmpty())
        path = QStringLiteral("/");

    QString out = b.scheme.toString() + u':';
    if (hasAuthority)
        out += QStringLiteral("//") + authority;
    AppendEscaped(out, path);
    if (hasQuery) {
        out += u'?';
        AppendEscaped(out, query);
    }
    if (r.hasFragment) {
        out += u'#';
        AppendEscaped(out, r.fragment);
    }
    return out;
}
