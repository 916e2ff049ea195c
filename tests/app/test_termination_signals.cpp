// SIGTERM, SIGINT and SIGHUP (the terminal or session going away) reach the event loop as a signal
// of their own, and the process survives them.

#include "app/TerminationSignals.h"

#include <QSignalSpy>
#include <QTest>

#include <gtest/gtest.h>

#include <csignal>

using pindle::app::TerminationSignals;

TEST(TerminationSignals, DeliverSigtermSigintAndSighupThroughTheEventLoop)
{
    TerminationSignals signals;
    ASSERT_TRUE(signals.isActive());
    QSignalSpy received(&signals, &TerminationSignals::received);

    ASSERT_EQ(std::raise(SIGTERM), 0);
    ASSERT_EQ(std::raise(SIGINT), 0);
    ASSERT_EQ(std::raise(SIGHUP), 0);
    // Nothing runs inside the handler itself.
    EXPECT_EQ(received.count(), 0);
    ASSERT_TRUE(QTest::qWaitFor([&] { return received.count() == 3; }, 2000));
    EXPECT_EQ(received[0][0].toInt(), SIGTERM);
    EXPECT_EQ(received[1][0].toInt(), SIGINT);
    EXPECT_EQ(received[2][0].toInt(), SIGHUP);
}

TEST(TerminationSignals, RestoreTheDefaultHandlersWhenDestroyed)
{
    {
        TerminationSignals signals;
    }
    struct sigaction current = {};
    ASSERT_EQ(sigaction(SIGTERM, nullptr, &current), 0);
    EXPECT_EQ(current.sa_handler, SIG_DFL);
}
