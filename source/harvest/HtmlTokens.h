#pragma once

#include <QByteArray>
#include <string>
#include <vector>

// Rewrites a page's text (UTF-8, as DecodePageText gives it) into markup that libxml2's HTML parser
// splits into the same tokens a browser's tokenizer finds in the original, so that only building the
// tree is left to libxml2:
// - character references decoded as a browser decodes them: every name of the HTML standard in the
//   capitals it accepts ("&AMP;"), the legacy names without ';' ("&amp", "&copy"), numbers in the
//   windows-1252 range ("&#150;" is a dash); what is left is handed on as "&#N;";
// - tags and attributes split as a browser splits them, and written out plainly; "</br>" is "<br>";
//   "</html>" and "</body>" close nothing; empty elements that libxml2 does not know as empty are
//   closed at once;
// - comments ended where a browser ends them ("<!-->" is an empty one), "<?...>" and "<!...>" made
//   comments;
// - the content of title and textarea (references decoded) and of xmp, iframe, noembed, noframes
//   and plaintext (as it stands) taken as text.
//
// What libxml2 would drop or cut is carried past it: a name it cannot read (too long, or of other
// characters than it allows) is written "m--N", N its place in `names`; a character XML does not
// allow (a control, U+FFFE, U+FFFF) is written as a private-use stand-in that RestoreStandIns turns
// back. NUL in text is dropped, elsewhere it is U+FFFD, as in a browser.
struct NormalisedHtml {
    QByteArray markup;
    std::vector<std::string> names;
    bool standIns = false;
};
NormalisedHtml NormaliseHtml(const QByteArray& utf8);

// The name that libxml2 reports, as the page wrote it; `names` is NormalisedHtml::names.
const char* RestoreName(const char* name, const std::vector<std::string>& names);
// Appends the text with its stand-ins turned back into the characters they stand for.
void RestoreStandIns(const char* text, std::size_t length, std::string& out);

// The text that the character reference at `from` (which points at '&') stands for, in UTF-8, and
// the position behind it; empty text and `from` unchanged when it is no reference. In an attribute
// value a legacy name followed by '=' or a letter or digit is no reference, as in a browser.
QByteArray DecodeCharacterReference(const char* from, const char* end, bool inAttribute, const char** behind);
