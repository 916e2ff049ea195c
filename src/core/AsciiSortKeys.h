#pragma once

#include <unicode/coll.h>

#include <array>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace pindle::Collation {

// Sort keys of plain ASCII names written from a table of the collator's own weights: byte for
// byte what the collator writes, at a small part of its cost. Names beyond ASCII, and locales
// that order ASCII in ways a table of single characters can't express (contractions such as
// Danish "aa", tailored letters, French accent order, a case level), are left to the collator.
class AsciiSortKeys
{
public:
    // The table of this collator, which has secondary strength and numeric ordering; nothing
    // when its keys for ASCII aren't the plain concatenation the table writes.
    static std::optional<AsciiSortKeys> learn(const icu::Collator &collator);

    // Appends the key of name without the terminating zero byte and returns true, or returns
    // false and leaves keys as they were when name isn't plain ASCII (Unicode::isPlainAscii),
    // or holds a run of digits too long for the table.
    bool append(std::u16string_view name, std::string &keys) const;

private:
    struct Weight
    {
        uint8_t size = 0; // 0 for a character the collator ignores
        std::array<uint8_t, 4> bytes{};
    };

    // Writes the number at out and moves out past it.
    void appendNumber(std::u16string_view digits, char *&out, size_t &elements) const;

    std::array<Weight, 128> m_weights{};
    uint8_t m_digitLead = 0;
};

} // namespace pindle::Collation
