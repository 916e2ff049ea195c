// The desktop services where the end-to-end runs do not reach them: the Trash with odd names and
// a broken Trash, and icons for files that will not hold still.

#include "platform/QtServices.h"

#include "core/LocalPath.h"

#include "support/TestSupport.h"

#include <QDir>
#include <QFile>

#include <gtest/gtest.h>

#include <cstdio>
#include <fstream>
#include <sstream>
#include <unistd.h>

using namespace Qt::StringLiterals;

using namespace pindle;

// A second file of the same name must not replace the first in the Trash, a name that is not
// UTF-8 keeps its bytes, and a Trash that cannot take a file leaves it where it was.
TEST(Trash, keepsSameNamedFilesApartAndOddNamesAsTheyAreAndNeverLosesAFile)
{
    ASSERT_TRUE(QDir().mkpath(test::shortcutFolder()));
    const QByteArray file = QFile::encodeName(test::shortcutFolder()) + "/caf\xE9.url";
    const QByteArray trash = QFile::encodeName(test::homePath()) + "/.local/share/Trash";
    const auto read = [](const QByteArray &path) {
        std::ostringstream text;
        text << std::ifstream(path.toStdString()).rdbuf();
        return text.str();
    };
    platform::QtWorkspace workspace(nullptr);
    const auto trashed = [&](const char *content) {
        std::ofstream(file.toStdString()) << content;
        return workspace.moveToTrash(LocalPath::fileUrl(file));
    };
    ASSERT_TRUE(trashed("first"));
    ASSERT_TRUE(trashed("second"));
    EXPECT_NE(::access(file.constData(), F_OK), 0);
    EXPECT_EQ(read(trash + "/files/caf\xE9.url"), "first");
    EXPECT_EQ(read(trash + "/files/caf\xE9 2.url"), "second");
    EXPECT_NE(read(trash + "/info/caf\xE9.url.trashinfo").find("/caf%E9.url\n"), std::string::npos);

    ASSERT_EQ(::rename(trash.constData(), (trash + ".away").constData()), 0);
    test::writeFile(QFile::decodeName(trash), "not a folder");
    EXPECT_FALSE(trashed("third"));
    EXPECT_EQ(read(file), "third");
    EXPECT_EQ(read(trash), "not a folder");
}

// A file that keeps turning into a pipe must not make the icon lookup wait for a writer: the
// alarm ends the test if it does.
TEST(Workspace, anIconForAFileSwappedForAPipeComesWithoutWaiting)
{
    platform::QtWorkspace workspace(nullptr);
    const QString swapped = test::shortcutFolder() + u"/notes"_s;
    test::writeFile(swapped, "plain");
    const test::PipeSwapper swapper(swapped);
    ::alarm(30);
    for (int round = 0; round < 5000; ++round)
        EXPECT_FALSE(workspace.iconForFile(swapped).isNull());
    ::alarm(0);
}
