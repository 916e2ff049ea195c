// Heap in use over hundreds of launcher openings with rows drawn, with the real desktop services
// behind the rows' icons: it must stay flat once the first openings have warmed every cache.

#include "PanelTestSupport.h"

#include "core/FileIndex.h"
#include "platform/QtServices.h"
#include "platform/fake/FakePlatform.h"
#include "support/TestSupport.h"
#include "ui/LauncherController.h"

#include <QTest>

#include <gtest/gtest.h>

#include <malloc.h>
#include <memory>

using namespace Qt::StringLiterals;

#if defined(__SANITIZE_ADDRESS__)
// AddressSanitizer's own allocator, which mallinfo2() knows nothing about.
extern "C" size_t __sanitizer_get_current_allocated_bytes();
#endif

using namespace pindle;

namespace {

// Bytes the program holds on the heap now.
size_t heapInUse()
{
#if defined(__SANITIZE_ADDRESS__)
    return __sanitizer_get_current_allocated_bytes();
#else
    return ::mallinfo2().uordblks;
#endif
}

TEST(PanelMemory, StaysFlatOverHundredsOfOpeningsWithRowsDrawn)
{
    platform::fake::installFakePlatform();
    platform::services().workspace = std::make_unique<platform::QtWorkspace>([] {});
    for (int i = 0; i < 12; ++i)
        test::writeWebloc(u"Shortcut "_s + QString::number(i), u"https://example.org/"_s);
    test::writeFile(test::shortcutFolder() + u"/Shortcut notes.txt"_s, "plain");

    auto *header = new QWidget;
    ui::LauncherController launcher(header, 58);
    launcher.buildField(header);
    const auto openWithRowsDrawn = [&] {
        launcher.show();
        QTest::keyClicks(launcher.textField(), u"sh"_s);
        ASSERT_FALSE(launcher.results.isEmpty());
        // Painting every row is what fills the caches of scaled icons.
        ASSERT_FALSE(launcher.panel()->grab().isNull());
        launcher.hide(false);
        // What the event loop does between two openings: pending events delivered, rows
        // replaced deleted.
        QCoreApplication::sendPostedEvents();
        QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete);
    };

    constexpr int warmUp = 100;
    constexpr int measured = 200;
    for (int i = 0; i < warmUp; ++i)
        openWithRowsDrawn();
    const size_t before = heapInUse();
    for (int i = 0; i < measured; ++i)
        openWithRowsDrawn();
    const size_t after = heapInUse();
    constexpr size_t allowedGrowth = 1 << 20;
    EXPECT_LT(after, before + allowedGrowth) << "grew by " << (after - before) << " bytes";
}

} // namespace
