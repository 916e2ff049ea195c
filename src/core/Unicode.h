#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

// Unicode services the matcher and the search share, all backed by ICU so that they follow the
// Unicode definitions exactly (Qt's own helpers use general categories where the properties
// differ, and lag ICU's Unicode version). Texts are UTF-16; the matcher's command-line filter
// uses these without Qt, and UnicodeQt.h gives the rest of the core the same on Qt strings.
namespace pindle::Unicode {

// Where the extended grapheme clusters of text begin, in UTF-16 units, followed by text.size().
// An empty text gives {0}.
std::vector<int32_t> clusterBoundaries(std::u16string_view text);
// The same into boundaries, whose storage is reused.
void clusterBoundaries(std::u16string_view text, std::vector<int32_t> &boundaries);

// Full case mappings of the whole text with the root locale: no language-specific rules, but
// context-sensitive ones (final sigma) and expansions (ß to SS) apply.
std::u16string lowercased(std::u16string_view text);
void lowercased(std::u16string_view text, std::u16string &result);
std::u16string uppercased(std::u16string_view text);

// Canonical decomposition (NFD): canonically equivalent texts have identical decompositions.
std::u16string decomposed(std::u16string_view text);
bool canonicallyEqual(std::u16string_view a, std::u16string_view b);

// The character tests of the matcher, for one user-perceived character (one grapheme cluster).
bool isLowercase(std::u16string_view character);
bool isUppercase(std::u16string_view character);
bool isLetter(std::u16string_view character);

// UTF-8 as UTF-16, each ill-formed sequence replaced by U+FFFD.
std::u16string fromUtf8(std::string_view bytes);

} // namespace pindle::Unicode
