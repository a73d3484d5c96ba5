// The element facade over any bytes, in any charset a server may name: every element can be read,
// its parents end at the root, the links come in document order among all elements, and a link's
// markup holds its inner markup.
#include "FuzzTarget.h"
#include "HtmlDom.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, size_t size) {
    static const char* const charsets[] = {"", "utf-8", "windows-1252", "iso-8859-7", "shift_jis", "x-none"};
    const QString charset = QString::fromLatin1(charsets[size ? data[size - 1] % 6 : 0]);
    const auto document = ParseHtmlDocument(FuzzBytes(data, size), charset,
                                            QUrl(QStringLiteral("http://listings.ebay.com/a/b.html")));
    const std::vector<HtmlElement*>& all = document->all();
    size_t next = 0;
    for (const HtmlElement* link : document->links()) {
        while (next < all.size() && all[next] != link)
            ++next;
        FUZZ_CHECK(next++ < all.size());
        FUZZ_CHECK(link->outerHTML().contains(link->innerHTML()));
        link->DefaultValue();
    }
    for (const HtmlElement* element : all) {
        size_t depth = 0;
        const HtmlElement* top = element;
        for (; top->parentElement(); top = top->parentElement())
            FUZZ_CHECK(++depth < all.size());
        FUZZ_CHECK(top == document->documentElement());
        element->innerText();
        element->tagName();
    }
    return 0;
}
