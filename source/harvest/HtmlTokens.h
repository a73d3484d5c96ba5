#pragma once

#include <QByteArray>
#include <cstdint>
#include <string>
#include <vector>

// A page's text (UTF-8, as DecodePageText gives it) split into tokens as a browser's tokenizer splits
// it, and written out for libxml2's HTML parser, which then only builds the tree:
// - character references decoded as a browser decodes them: every name of the HTML standard in the
//   capitals it accepts ("&AMP;"), the legacy names without ';' ("&amp", "&copy"), numbers in the
//   windows-1252 range ("&#150;" is a dash);
// - tags and attributes split as a browser splits them, and written out plainly; "</br>" is "<br>";
//   "</html>" and "</body>" close nothing; an end tag that has no start tag of its name left over,
//   and so closes nothing, is dropped; empty elements that libxml2 does not know as empty are closed
//   at once;
// - comments ended where a browser ends them ("<!-->" is an empty one), "<?...>" and "<!...>" made
//   comments;
// - the content of title and textarea (references decoded) and of xmp, iframe, noembed, noframes
//   and plaintext (as it stands) taken as text.
// libxml2 sees no text and no attributes, which it has no use for in building the tree: each run of
// text that is not all white space and each comment is written "~N", N its place in `pieces`, whose
// bytes lie in `text`; white space goes as it is, since it is all the parser looks at in text. The
// attributes of a start tag are written as one, a="N", N its place in `attributeLists`. An element
// name libxml2 cannot read (too long, or of other characters than it allows) is written "m--N", N
// its place in `names`. NUL in text is dropped, elsewhere it is U+FFFD, as in a browser.
struct NormalisedHtml {
    struct Piece {
        std::uint32_t offset;
        std::uint32_t length;
    };
    struct Attribute {
        std::uint32_t name; // place in attributeNames
        Piece value;
    };
    std::string markup;
    std::string text;
    std::vector<Piece> pieces;
    std::vector<std::string> names;
    std::vector<std::string> attributeNames;
    std::vector<Attribute> attributes;
    // A start tag's attributes: where they begin in `attributes`, and how many.
    std::vector<Piece> attributeLists;
};
NormalisedHtml NormaliseHtml(const QByteArray& utf8);

// The piece or list that a "~N" or "N" written for libxml2 stands for, or null when the text is no
// such stand-in.
const NormalisedHtml::Piece* PieceOf(const char* written, std::size_t length,
                                     const std::vector<NormalisedHtml::Piece>& pieces);
const NormalisedHtml::Piece* AttributeListOf(const char* written, const NormalisedHtml& source);
// The name that libxml2 reports, as the page wrote it; `names` is NormalisedHtml::names.
const char* RestoreName(const char* name, const std::vector<std::string>& names);

// Appends the text that the character reference at `from` (which points at '&') stands for, in
// UTF-8, and returns the position behind it; returns `from` and appends nothing when it is no
// reference. In an attribute value a legacy name followed by '=' or a letter or digit is no
// reference, as in a browser.
const char* DecodeCharacterReference(const char* from, const char* end, bool inAttribute, std::string& out);
