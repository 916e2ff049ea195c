#include "core/FileIndex.h"
#include "core/LocalPath.h"
#include "core/ShortcutURL.h"
#include "support/TestSupport.h"

#include <QDir>
#include <QFile>
#include <QRandomGenerator>

#include <gtest/gtest.h>

#include <fcntl.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

using namespace Qt::StringLiterals;

using namespace pindle;
using test::inFolder;

namespace {

QByteArray bigEndian(quint64 value, int size)
{
    QByteArray bytes(size, '\0');
    for (int i = size - 1; i >= 0; --i, value >>= 8)
        bytes[i] = char(value);
    return bytes;
}

// Object i is a one-element array holding object i + 1, with three-byte references and offsets:
// as deep as a list under 1 MiB gets.
QByteArray deepBinaryPlist(int depth)
{
    QByteArray objects = "bplist00";
    QByteArray offsets;
    for (int i = 0; i < depth; ++i) {
        offsets += bigEndian(quint64(objects.size()), 3);
        objects += i + 1 < depth ? "\xA1" + bigEndian(quint64(i + 1), 3) : QByteArray("\xA0");
    }
    return objects + offsets + QByteArray(6, '\0') + "\x03\x03" + bigEndian(quint64(depth), 8) +
           bigEndian(0, 8) + bigEndian(quint64(objects.size()), 8);
}

// A binary list of the given objects, object 0 at the top, with one-byte references.
QByteArray binaryPlist(const QList<QByteArray> &objects)
{
    QByteArray bytes = "bplist00";
    QByteArray offsets;
    for (const QByteArray &object : objects) {
        offsets += bigEndian(quint64(bytes.size()), 4);
        bytes += object;
    }
    return bytes + offsets + QByteArray(6, '\0') + "\x04\x02" +
           bigEndian(quint64(objects.size()), 8) + bigEndian(0, 8) +
           bigEndian(quint64(bytes.size()), 8);
}

QByteArray ref(int object)
{
    return bigEndian(quint64(object), 2);
}

// { URL: https://bomb/, x: objects[4] }: a valid shortcut as long as the rest reads.
QList<QByteArray> shortcutHolding(const QList<QByteArray> &rest)
{
    QList<QByteArray> objects = {"\xD2" + ref(1) + ref(2) + ref(3) + ref(4), "\x53URL", "\x51x",
                                 "\x5Dhttps://bomb/"};
    return objects + rest;
}

// Objects that refer to the same children again and again, or to one long text many times, are
// cheap on disk and enormous once expanded; the reader refuses them before building anything.
TEST(HostileFolder, PropertyListsThatExpandBeyondAnyShortcutHaveNoTarget)
{
    QList<QByteArray> doubling;
    constexpr int levels = 20; // a million leaves: slow, but still within reach unguarded
    for (int i = 0; i < levels; ++i)
        doubling.append("\xA2" + ref(5 + i) + ref(5 + i));
    doubling.append("\x09");
    test::writeFile(inFolder(u"doubling.webloc"_s), binaryPlist(shortcutHolding(doubling)));

    constexpr int repeats = 2000;
    QByteArray manyRefs = "\xAF\x11" + bigEndian(repeats, 2);
    for (int i = 0; i < repeats; ++i)
        manyRefs += ref(5);
    const QByteArray longText = "\x4F\x12" + bigEndian(100000, 4) + QByteArray(100000, 'a');
    test::writeFile(inFolder(u"repeated.webloc"_s),
                    binaryPlist(shortcutHolding({manyRefs, longText})));

    // Every character reference costs the XML reader a move of the rest of the text.
    test::writeFile(inFolder(u"references.webloc"_s),
                    "<plist><dict><key>URL</key><string>https://bomb/" +
                        QByteArray("&amp;").repeated(200000) + "</string></dict></plist>");

    // The same shapes kept small read as usual.
    test::writeFile(
        inFolder(u"small.webloc"_s),
        binaryPlist(shortcutHolding({"\xA2" + ref(5) + ref(5), QByteArray("\x41") + "a"})));

    for (const char *name : {"doubling", "repeated", "references", "small"}) {
        const std::optional<QString> target = ShortcutURL::target(
            QUrl::fromLocalFile(inFolder(QString::fromLatin1(name) + u".webloc"_s)));
        EXPECT_EQ(target,
                  qstrcmp(name, "small") == 0 ? std::optional(u"https://bomb/"_s) : std::nullopt)
            << name;
    }
}

// Sync clients replace files at any time: a file that turns into a pipe between the scan and
// the drawing of its row, or between a look at it and its opening, must not stall the row.
TEST(HostileFolder, FilesSwappedForPipesStallNothing)
{
    ::alarm(30); // an open that waits for a writer would hang; the alarm ends the test instead
    // Without an extension, the type can only come from the file's first bytes.
    const QString path = inFolder(u"notes"_s);
    test::writeFile(path, "plain");
    test::writeFile(inFolder(u"link.url"_s), "URL=https://a/");
    const QList<IndexedFile> files = FileIndex::scan();
    ASSERT_EQ(files.size(), 2);
    const test::PipeSwapper swapper(path);
    test::PipeSwapper linkSwapper(inFolder(u"link.url"_s));
    for (int round = 0; round < 500; ++round) {
        ShortcutURL::clearCaches();
        for (const IndexedFile &file : files)
            ShortcutURL::subtitle(file.url);
    }
    ::alarm(0);
}

// A name that is not UTF-8 can't be spelled in text; its record still names that very file.
TEST(HostileFolder, NamesThatAreNotUtf8StillNameTheirFiles)
{
    const QByteArray folder = QFile::encodeName(test::shortcutFolder());
    ASSERT_TRUE(QDir().mkpath(test::shortcutFolder()));
    for (const auto &[name, bytes] :
         {std::pair<QByteArray, QByteArray>{"caf\xE9.url", "URL=https://cafe/"},
          {"caf\xE9 100%.webloc", test::readFile(test::writeWebloc(u"x"_s, u"https://pct/"_s))},
          {"caf\xE9.txt", "plain text"}}) {
        const int fd = ::open((folder + '/' + name).constData(), O_WRONLY | O_CREAT, 0644);
        ASSERT_GE(fd, 0);
        ASSERT_EQ(::write(fd, bytes.constData(), size_t(bytes.size())), bytes.size());
        ::close(fd);
    }
    ASSERT_TRUE(QFile::remove(inFolder(u"x.webloc"_s)));

    QStringList subtitles;
    for (const IndexedFile &file : FileIndex::scan()) {
        EXPECT_EQ(::access(LocalPath::nativePath(file.url).constData(), F_OK), 0)
            << file.displayName.toStdString();
        subtitles.append(ShortcutURL::subtitle(file.url));
    }
    ASSERT_EQ(subtitles.size(), 3);
    EXPECT_TRUE(subtitles.contains(u"https://cafe/"_s));
    EXPECT_TRUE(subtitles.contains(u"https://pct/"_s));
    EXPECT_FALSE(subtitles.contains(QString())); // the text file's type
}

TEST(HostileFolder, NothingHangsCrashesOrHasATarget)
{
    ::alarm(60); // a blocking read would hang the test; the alarm fails it instead
    test::writeFile(inFolder(u"fine.url"_s), "URL=https://a/");
    test::writeFile(inFolder(u"nested.webloc"_s),
                    "<plist><dict><key>x</key>" + QByteArray("<array>").repeated(20) +
                        QByteArray("</array>").repeated(20) +
                        "<key>URL</key><string>https://n/</string></dict></plist>");
    test::writeFile(inFolder(u"big.url"_s), "URL=https://a/" + QByteArray(2 << 20, '\n'));
    test::writeFile(inFolder(u"deep.webloc"_s), "<plist>" + QByteArray("<array>").repeated(65000) +
                                                    QByteArray("</array>").repeated(65000) +
                                                    "</plist>");
    test::writeFile(inFolder(u"deep.inetloc"_s), deepBinaryPlist(140000));
    QByteArray garbage(4096, Qt::Uninitialized);
    QRandomGenerator(2024).fillRange(reinterpret_cast<quint32 *>(garbage.data()),
                                     garbage.size() / 4);
    test::writeFile(inFolder(u"garbage.webloc"_s), garbage);
    test::writeFile(inFolder(u"garbage.url"_s), garbage);
    test::writeFile(inFolder(u"garbage.inetloc"_s), "bplist00" + garbage);
    const QByteArray folder = QFile::encodeName(test::shortcutFolder());
    ::close(::open((folder + "/caf\xE9.webloc").constData(), O_WRONLY | O_CREAT, 0644));
    ASSERT_EQ(::mkfifo((folder + "/pipe.url").constData(), 0644), 0);
    sockaddr_un socketAddress = {.sun_family = AF_UNIX, .sun_path = {}};
    qstrncpy(socketAddress.sun_path, folder + "/socket.webloc", sizeof socketAddress.sun_path);
    const int socketFd = ::socket(AF_UNIX, SOCK_STREAM, 0);
    ASSERT_EQ(::bind(socketFd, reinterpret_cast<sockaddr *>(&socketAddress), sizeof socketAddress),
              0);
    ::close(socketFd);
    for (const auto &[link, target] : {std::pair{"pipelink.webloc", "pipe.url"},
                                       {"zero.url", "/dev/zero"},
                                       {"tty.webloc", "/dev/tty"},
                                       {"dangling.url", "gone"},
                                       {"loop.url", "loop.url"}})
        ASSERT_EQ(::symlink(target, (folder + '/' + link).constData()), 0);

    QStringList names;
    for (const IndexedFile &file : FileIndex::scan()) {
        names.append(file.displayName);
        const std::optional<QString> target = ShortcutURL::target(file.url);
        EXPECT_EQ(target.has_value(), file.displayName == u"fine" || file.displayName == u"nested")
            << file.displayName.toStdString();
        ShortcutURL::subtitle(file.url);
    }
    // A name that is not UTF-8 is listed as well as it can be, and harms nothing else.
    EXPECT_EQ(names, QStringList({u"big"_s, u"caf\uFFFD"_s, u"deep"_s, u"deep"_s, u"fine"_s,
                                  u"garbage"_s, u"garbage"_s, u"garbage"_s, u"nested"_s}));
    for (const char *unlisted : {"pipe.url", "pipelink.webloc", "socket.webloc", "zero.url",
                                 "tty.webloc", "dangling.url", "loop.url"}) {
        const QUrl file = QUrl::fromLocalFile(inFolder(QString::fromUtf8(unlisted)));
        EXPECT_EQ(ShortcutURL::target(file), std::nullopt) << unlisted;
        ShortcutURL::subtitle(file);
    }
    ::alarm(0);
}

} // namespace
