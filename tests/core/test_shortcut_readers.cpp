// What the shortcut readers take from a file, and folders whose files are built to hurt: bombs
// that expand beyond any shortcut, pipes, devices, links and names that are not UTF-8.

#include "core/FileIndex.h"
#include "core/LocalPath.h"
#include "core/ShortcutURL.h"
#include "support/TestSupport.h"

#include <QDir>
#include <QFile>
#include <QMimeDatabase>

#include <gtest/gtest.h>

#include <fcntl.h>
#include <sys/stat.h>
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

// A binary list of the given objects, object 0 at the top, with references of refSize bytes.
QByteArray binaryPlist(const QList<QByteArray> &objects, char refSize = 2, char offsetSize = 4)
{
    QByteArray bytes = "bplist00";
    QByteArray offsets;
    for (const QByteArray &object : objects) {
        offsets += bigEndian(quint64(bytes.size()), offsetSize);
        bytes += object;
    }
    return bytes + offsets + QByteArray(6, '\0') + offsetSize + refSize +
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
    return QList<QByteArray>{"\xD2" + ref(1) + ref(2) + ref(3) + ref(4), "\x53URL", "\x51x",
                             "\x5Dhttps://bomb/"} +
           rest;
}

QByteArray xmlPlist(const QByteArray &root)
{
    return "<plist version=\"1.0\">" + root + "</plist>\n";
}

TEST(ShortcutReaders, ReadOnlyTheirOwnFormatsAndGiveTheRowsSubtitle)
{
    const QByteArray bom = "\xEF\xBB\xBF";
    // As browsers write them; the binary one as small as the format allows, with one-byte
    // references and offsets.
    const QByteArray webloc = "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<!DOCTYPE plist PUBLIC "
                              "\"-//Apple//DTD PLIST 1.0//EN\" \"http://www.apple.com/DTDs/"
                              "PropertyList-1.0.dtd\">\n" +
                              xmlPlist("<dict><key>Other</key><integer>1</integer><key>URL</key>"
                                       "<string>https://a/?b&amp;c</string></dict>");
    const QByteArray binary = binaryPlist(
        {"\xD2\x01\x02\x03\x04", "\x53URL", "\x55Other", "\x5Ehttps://a/?b&c", "\x10\x01"}, 1, 1);
    const QByteArray binaryNumber =
        binaryPlist({"\xD1\x01\x02", "\x53URL", "\x23" + bigEndian(0x4008000000000000, 8)}, 1, 1);
    QList<std::tuple<QString, QByteArray, std::optional<QString>>> cases = {
        // Property lists: only a string under "URL" in a root dictionary, as it stands.
        {u"xml.webloc"_s, webloc, u"https://a/?b&c"_s},
        {u"Home.WEBLOC"_s, bom + webloc, u"https://a/?b&c"_s},
        {u"binary.inetloc"_s, binary, u"https://a/?b&c"_s},
        {u"empty.webloc"_s, xmlPlist("<dict><key>URL</key><string/></dict>"), QString()},
        {u"array.webloc"_s, xmlPlist("<array><string>https://a/</string></array>"), std::nullopt},
        {u"number.inetloc"_s, binaryNumber, std::nullopt},
        {u"ini.webloc"_s, "[InternetShortcut]\nURL=https://a/\n", std::nullopt},
        {u"plist.url"_s, webloc, std::nullopt},
        // Ini files: the first URL line, in any section and case, trimmed of blanks.
        {u"1.url"_s, "[InternetShortcut]\r\nURL=https://a/b?c=d\r\n", u"https://a/b?c=d"_s},
        {u"2.URL"_s, bom + "[Other]\n \t url=\t https://a/ \xC2\xA0\t", u"https://a/"_s},
        {u"3.url"_s, "BASEURL=https://b/\nURL = https://c/\nURL=https://a/", u"https://a/"_s},
        {u"5.url"_s, "URL=\r\nURL=https://a/", std::nullopt},
        {u"6.url"_s, "[InternetShortcut]\nIconIndex=0\n", std::nullopt},
        // Windows-1252 is not UTF-8: read as ISO Latin-1, where 0x85 ends a line.
        {u"7.url"_s, "URL=https://a/caf\xE9\x85tail", u"https://a/caf\u00E9"_s},
    };
    for (const char *newline : {"\n", "\v", "\f", "\r", "\xC2\x85", "\xE2\x80\xA8", "\xE2\x80\xA9"})
        cases.append({u"nl"_s + QString::number(cases.size()) + u".url"_s,
                      QByteArray("x") + newline + "URL=https://a/" + newline + "tail",
                      u"https://a/"_s});
    const auto url = [](const QString &name) { return QUrl::fromLocalFile(inFolder(name)); };
    for (const auto &[name, bytes, expected] : cases) {
        test::writeFile(inFolder(name), bytes);
        EXPECT_EQ(ShortcutURL::target(url(name)), expected) << name.toStdString();
    }
    // A row's subtitle: the target, else the type's description, else nothing.
    test::writeFile(inFolder(u"notes.txt"_s), "notes\n");
    const QString textKind = QMimeDatabase().mimeTypeForName(u"text/plain"_s).comment();
    EXPECT_FALSE(textKind.isEmpty());
    EXPECT_EQ(ShortcutURL::subtitle(url(u"xml.webloc"_s)), u"https://a/?b&c"_s);
    EXPECT_EQ(ShortcutURL::subtitle(url(u"array.webloc"_s)), u"Web location"_s);
    EXPECT_EQ(ShortcutURL::subtitle(url(u"empty.webloc"_s)), QString());
    EXPECT_EQ(ShortcutURL::subtitle(url(u"notes.txt"_s)), textKind);
    EXPECT_EQ(ShortcutURL::subtitle(url(u"missing.txt"_s)), QString());
}

TEST(HostileFolder, FilesSwappedForPipesStallNothing)
{
    ::alarm(30); // an open that waits for a writer would hang; the alarm ends the test instead
    // Without an extension, the type can only come from the file's first bytes.
    test::writeFile(inFolder(u"notes"_s), "plain");
    test::writeFile(inFolder(u"link.url"_s), "URL=https://a/");
    const QList<IndexedFile> files = FileIndex::scan();
    ASSERT_EQ(files.size(), 2);
    const test::PipeSwapper swapper(inFolder(u"notes"_s));
    const test::PipeSwapper linkSwapper(inFolder(u"link.url"_s));
    for (int round = 0; round < 500; ++round) {
        ShortcutURL::clearCaches();
        for (const IndexedFile &file : files)
            ShortcutURL::subtitle(file.url);
    }
    ::alarm(0);
}

// Only the shortcuts in a hostile folder have a target, and nothing in it hangs or crashes.
TEST(HostileFolder, NothingHangsCrashesOrHasATarget)
{
    ::alarm(60); // a blocking read would hang the test; the alarm fails it instead
    const QByteArray folder = QFile::encodeName(test::shortcutFolder());
    ASSERT_TRUE(QDir().mkpath(test::shortcutFolder()));
    const auto write = [&](const QByteArray &name, const QByteArray &bytes) {
        const int fd = ::open((folder + '/' + name).constData(), O_WRONLY | O_CREAT, 0644);
        ASSERT_EQ(::write(fd, bytes.constData(), size_t(bytes.size())), bytes.size());
        ::close(fd);
    };
    // Names that are not UTF-8, or that hold what a URL reads as its own (# ? %), still name
    // their files in their records.
    write("fin\xE9.url", "URL=https://a/");
    write("nest\xE9 #1 ?100%.webloc",
          "<plist><dict><key>x</key>" + QByteArray("<array>").repeated(20) +
              QByteArray("</array>").repeated(20) +
              "<key>URL</key><string>https://n/</string></dict></plist>");
    // Lists that refer to the same children again and again (a million leaves: slow, but within
    // reach unguarded), or to one long text many times, are cheap on disk and enormous once
    // expanded: the reader refuses them before building anything. Small, the shapes read.
    QList<QByteArray> doubling;
    for (int i = 0; i < 20; ++i)
        doubling.append("\xA2" + ref(5 + i) + ref(5 + i));
    write("doubling.webloc", binaryPlist(shortcutHolding(doubling << "\x09")));
    write("repeated.webloc", binaryPlist(shortcutHolding(
                                 {"\xAF\x11" + bigEndian(2000, 2) + ref(5).repeated(2000),
                                  "\x4F\x12" + bigEndian(100000, 4) + QByteArray(100000, 'a')})));
    write("small.webloc", binaryPlist(shortcutHolding({"\xA2" + ref(5) + ref(5), "\x41x"})));
    // Every character reference costs the XML reader a move of the rest of the text.
    write("references.webloc", "<plist><dict><key>URL</key><string>https://bomb/" +
                                   QByteArray("&amp;").repeated(200000) +
                                   "</string></dict></plist>");
    write("big.url", "URL=https://a/" + QByteArray(2 << 20, '\n'));
    write("deep.webloc", "<plist>" + QByteArray("<array>").repeated(65000) +
                             QByteArray("</array>").repeated(65000) + "</plist>");
    // Each object an array holding the next, as deep as a list under 1 MiB gets.
    QList<QByteArray> deep;
    for (int i = 1; i < 120000; ++i)
        deep.append("\xA1" + bigEndian(quint64(i), 3));
    write("deep.inetloc", binaryPlist(deep << "\xA0", 3));
    ASSERT_EQ(::mkfifo((folder + "/pipe.url").constData(), 0644), 0);
    for (const auto &[link, target] : {std::pair{"pipelink.webloc", "pipe.url"},
                                       {"zero.url", "/dev/zero"},
                                       {"dangling.url", "gone"},
                                       {"loop.url", "loop.url"}})
        ASSERT_EQ(::symlink(target, (folder + '/' + link).constData()), 0);

    QStringList listed;
    for (const IndexedFile &file : FileIndex::scan()) {
        EXPECT_EQ(::access(LocalPath::nativePath(file.url).constData(), F_OK), 0);
        const std::optional<QString> target = ShortcutURL::target(file.url);
        listed.append(file.displayName + (target ? u" -> "_s + *target : QString()));
        ShortcutURL::subtitle(file.url);
    }
    EXPECT_EQ(listed,
              QStringList({u"big"_s, u"deep"_s, u"deep"_s, u"doubling"_s,
                           u"fin\uFFFD -> https://a/"_s, u"nest\uFFFD #1 ?100% -> https://n/"_s,
                           u"references"_s, u"repeated"_s, u"small -> https://bomb/"_s}));
    for (const char *unlisted :
         {"pipe.url", "pipelink.webloc", "zero.url", "dangling.url", "loop.url"}) {
        const QUrl file = QUrl::fromLocalFile(inFolder(QString::fromUtf8(unlisted)));
        EXPECT_EQ(ShortcutURL::target(file), std::nullopt) << unlisted;
        ShortcutURL::subtitle(file);
    }
    ::alarm(0);
}

} // namespace
