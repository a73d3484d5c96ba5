#pragma once

#include <QByteArray>
#include <QString>

// A page's bytes as UTF-8 text, decoded the way a browser picks the charset: a byte order mark,
// else the charset the server named, else the one a meta tag near the start names, else
// windows-1252. Any charset the system's iconv knows is read; bytes it does not allow become U+FFFD
// and the rest of the page is kept. Line ends become "\n", as a browser reads its input.
QByteArray DecodePageText(const QByteArray& body, const QString& httpCharset);

// The charset that a meta tag near the start of the page names, or an empty string.
QString MetaCharset(const QByteArray& body);

// What a byte of windows-1252 stands for.
char32_t Windows1252Character(unsigned char byte);
