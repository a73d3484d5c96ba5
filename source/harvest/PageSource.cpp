#include "PageSource.h"

#include "HttpPageSource.h"

namespace {

PageSource*& ChosenSource() {
    static PageSource* source = nullptr;
    return source;
}

} // namespace

PageSource& DefaultPageSource() {
    static HttpPageSource http;
    PageSource* chosen = ChosenSource();
    return chosen ? *chosen : http;
}

void SetDefaultPageSource(PageSource* source) {
    ChosenSource() = source;
}
