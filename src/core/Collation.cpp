#include "core/Collation.h"

#include "core/AsciiSortKeys.h"

#include <unicode/coll.h>
#include <unicode/locid.h>

#include <cstdlib>
#include <memory>

namespace pindle::Collation {
namespace {

// The collation locale the way the C library picks it: LC_ALL, then LC_COLLATE, then LANG.
// C and POSIX mean "no language": ICU's root collator, which still orders digit runs by value
// (QCollator ignores numeric mode in the C locale, which is why ICU is used directly).
icu::Locale userCollationLocale()
{
    for (const char *variable : {"LC_ALL", "LC_COLLATE", "LANG"}) {
        const char *value = std::getenv(variable);
        if (value == nullptr || *value == '\0')
            continue;
        QByteArray name(value);
        name = name.left(name.indexOf('.')).left(name.indexOf('@'));
        if (name == "C" || name == "POSIX" || name.isEmpty())
            return icu::Locale::getRoot();
        return icu::Locale(name.constData());
    }
    return icu::Locale::getRoot();
}

std::unique_ptr<icu::Collator> makeCollator()
{
    UErrorCode status = U_ZERO_ERROR;
    std::unique_ptr<icu::Collator> collator(
        icu::Collator::createInstance(userCollationLocale(), status));
    if (U_FAILURE(status) || !collator) {
        status = U_ZERO_ERROR;
        collator.reset(icu::Collator::createInstance(icu::Locale::getRoot(), status));
    }
    if (!collator)
        return nullptr;
    status = U_ZERO_ERROR;
    // Secondary strength: accents count, case and width do not.
    collator->setStrength(icu::Collator::SECONDARY);
    collator->setAttribute(UCOL_NUMERIC_COLLATION, UCOL_ON, status);
    return collator;
}

// Made once, on whichever thread asks first, and only read after that: the scan's thread and
// the main thread share it through const calls, which ICU's collators allow.
const icu::Collator *collator()
{
    static const std::unique_ptr<icu::Collator> instance = makeCollator();
    return instance.get();
}

const AsciiSortKeys *asciiKeys()
{
    static const std::optional<AsciiSortKeys> instance =
        collator() != nullptr ? AsciiSortKeys::learn(*collator()) : std::nullopt;
    return instance ? &*instance : nullptr;
}

icu::UnicodeString toIcu(const QString &text)
{
    return icu::UnicodeString(false, reinterpret_cast<const char16_t *>(text.utf16()),
                              int32_t(text.size()));
}

} // namespace

QByteArray sortKey(const QString &name)
{
    std::string key;
    appendSortKey(name, key);
    return QByteArray(key.data(), qsizetype(key.size()));
}

size_t appendSortKey(const QString &name, std::string &keys)
{
    const icu::Collator *c = collator();
    if (c == nullptr) {
        const QByteArray folded = name.toCaseFolded().toUtf8();
        keys.append(folded.constData(), size_t(folded.size()));
        return size_t(folded.size());
    }
    const size_t at = keys.size();
    if (const AsciiSortKeys *table = asciiKeys();
        table != nullptr &&
        table->append({reinterpret_cast<const char16_t *>(name.utf16()), size_t(name.size())},
                      keys))
        return keys.size() - at;
    const icu::UnicodeString text = toIcu(name);
    constexpr int32_t usualSize = 64;
    keys.resize(at + usualSize);
    int32_t needed = c->getSortKey(text, reinterpret_cast<uint8_t *>(keys.data() + at), usualSize);
    if (needed > usualSize) {
        keys.resize(at + size_t(needed));
        needed = c->getSortKey(text, reinterpret_cast<uint8_t *>(keys.data() + at), needed);
    }
    // ICU counts the terminating zero byte; the key compares the same without it.
    const size_t size = needed > 0 ? size_t(needed - 1) : 0;
    keys.resize(at + size);
    return size;
}

} // namespace pindle::Collation
