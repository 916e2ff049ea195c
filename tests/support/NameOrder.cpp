#include "support/NameOrder.h"

#include <unicode/coll.h>

#include <cstdlib>
#include <memory>

namespace pindle::test {
namespace {

icu::Locale collationLocale()
{
    for (const char *variable : {"LC_ALL", "LC_COLLATE", "LANG"}) {
        const char *value = std::getenv(variable);
        if (value == nullptr || *value == '\0')
            continue;
        const QString name = QString::fromLocal8Bit(value).section(u'.', 0, 0).section(u'@', 0, 0);
        if (name == u"C" || name == u"POSIX" || name.isEmpty())
            return icu::Locale::getRoot();
        return icu::Locale(name.toLatin1().constData());
    }
    return icu::Locale::getRoot();
}

icu::UnicodeString icuText(const QString &text)
{
    return {false, reinterpret_cast<const char16_t *>(text.utf16()), int32_t(text.size())};
}

} // namespace

int compareNames(const QString &a, const QString &b)
{
    UErrorCode status = U_ZERO_ERROR;
    const std::unique_ptr<icu::Collator> collator(
        icu::Collator::createInstance(collationLocale(), status));
    collator->setStrength(icu::Collator::SECONDARY);
    collator->setAttribute(UCOL_NUMERIC_COLLATION, UCOL_ON, status);
    return int(collator->compare(icuText(a), icuText(b), status));
}

} // namespace pindle::test
