#pragma once

#include <cstddef>

// A name that a browser reads after '&' and the text it stands for, in UTF-8. Names that end in ';'
// need it; the few without are the legacy forms a browser also accepts without one ("amp", "copy").
struct NamedReference {
    const char* name;
    const char* utf8;
};

// Sorted by their bytes, for a binary search.
extern const NamedReference NamedReferences[];
extern const std::size_t NamedReferenceCount;
