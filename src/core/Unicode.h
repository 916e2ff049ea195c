#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

// Unicode services the matcher and the search share, all backed by ICU so that they follow the
// Unicode definitions exactly (Qt's own helpers use general categories where the properties
// differ, and lag ICU's Unicode version). Texts are UTF-16; the matcher's command-line filter
// uses these without Qt, and UnicodeQt.h gives the rest of the core the same on Qt strings.
namespace pindle::Unicode {

// Finds where the extended grapheme clusters of a text begin. Most boundaries are decided without
// ICU's break iterator; the iterator, which costs some microseconds to open, is opened on the
// first text that needs it and kept for the breaker's life. One thread at a time.
class ClusterBreaker
{
public:
    ClusterBreaker();
    ~ClusterBreaker();
    ClusterBreaker(const ClusterBreaker &) = delete;
    ClusterBreaker &operator=(const ClusterBreaker &) = delete;

    // The cluster starts in UTF-16 units, followed by text.size(), into boundaries (whose
    // storage is reused). An empty text gives {0}.
    void boundaries(std::u16string_view text, std::vector<int32_t> &boundaries);

private:
    struct Iterator;
    std::unique_ptr<Iterator> m_iterator;
};

// ClusterBreaker::boundaries with a breaker of its own, for texts segmented now and then.
std::vector<int32_t> clusterBoundaries(std::u16string_view text);

// Whether every code unit is a character by itself in ASCII: all of ASCII but CR, which forms
// one character with a following LF. Such a text is its own lowercase form's length, its own
// decomposition, and is matched, sorted and compared on its units as they stand.
bool isPlainAscii(std::u16string_view text);

// The full lowercase mapping of the whole text with the root locale: no language-specific rules,
// but context-sensitive ones (final sigma) and expansions (İ to i and a combining dot) apply.
std::u16string lowercased(std::u16string_view text);
void lowercased(std::u16string_view text, std::u16string &result);

// Canonical decomposition (NFD): canonically equivalent texts have identical decompositions.
std::u16string decomposed(std::u16string_view text);
// Canonical composition (NFC): identical for canonically equivalent texts too, and for most
// characters a single code point.
std::u16string composed(std::u16string_view text);
bool canonicallyEqual(std::u16string_view a, std::u16string_view b);

// The character tests of the matcher, for one user-perceived character (one grapheme cluster).
bool isLowercase(std::u16string_view character);
bool isUppercase(std::u16string_view character);
bool isLetter(std::u16string_view character);

// UTF-8 as UTF-16, each ill-formed sequence replaced by U+FFFD.
std::u16string fromUtf8(std::string_view bytes);

} // namespace pindle::Unicode
