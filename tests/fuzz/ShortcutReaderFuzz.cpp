// Feeds arbitrary bytes to both shortcut readers. The answers don't matter here; a crash, a
// sanitizer report, a leak or a hang does.

#include "core/ShortcutFormat.h"

#include <QByteArrayView>

#include <cstddef>
#include <cstdint>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    const QByteArrayView bytes(reinterpret_cast<const char *>(data), qsizetype(size));
    (void)pindle::ShortcutFormat::plistTarget(bytes);
    (void)pindle::ShortcutFormat::iniTarget(bytes);
    return 0;
}
