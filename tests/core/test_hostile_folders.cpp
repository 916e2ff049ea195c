#include "core/FileIndex.h"
#include "core/ShortcutURL.h"
#include "support/TestSupport.h"

#include <QFile>
#include <QRandomGenerator>

#include <gtest/gtest.h>

#include <fcntl.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

using namespace pindle;

namespace {

QString inFolder(const QString &name)
{
    return test::shortcutFolder() + u'/' + name;
}

QByteArray deepBinaryPlist(int depth)
{
    // Object i is a one-element array holding object i + 1; four-byte references and offsets.
    QByteArray objects = "bplist00";
    QByteArray offsets;
    auto bigEndian = [](quint64 value, int size) {
        QByteArray bytes;
        for (int shift = (size - 1) * 8; shift >= 0; shift -= 8)
            bytes.append(char(value >> shift));
        return bytes;
    };
    for (int i = 0; i < depth; ++i) {
        offsets += bigEndian(quint64(objects.size()), 4);
        objects += i + 1 < depth ? "\xA1" + bigEndian(quint64(i + 1), 4) : QByteArray("\xA0");
    }
    const quint64 tableOffset = quint64(objects.size());
    return objects + offsets + QByteArray(6, '\0') + "\x04\x04" + bigEndian(quint64(depth), 8) +
           bigEndian(0, 8) + bigEndian(tableOffset, 8);
}

QByteArray randomBytes(qsizetype size)
{
    QByteArray bytes(size, Qt::Uninitialized);
    for (char &byte : bytes)
        byte = char(QRandomGenerator::global()->bounded(256));
    return bytes;
}

void makeSocket(const QString &path)
{
    sockaddr_un address = {};
    address.sun_family = AF_UNIX;
    const QByteArray native = QFile::encodeName(path);
    ASSERT_LT(size_t(native.size()), sizeof(address.sun_path));
    std::copy(native.begin(), native.end(), address.sun_path);
    const int fd = ::socket(AF_UNIX, SOCK_STREAM, 0);
    ASSERT_GE(fd, 0);
    EXPECT_EQ(::bind(fd, reinterpret_cast<sockaddr *>(&address), sizeof(address)), 0);
    ::close(fd);
}

TEST(HostileFolder, NothingHangsCrashesOrHasATarget)
{
    // A read that blocks would hang the test; the alarm turns that into a failure.
    ::alarm(60);
    const QByteArray url = "URL=https://a/\n";
    test::writeFile(inFolder(u"neighbour.url"_qs), url);
    test::writeFile(inFolder(u"nested.webloc"_qs),
                    "<plist><dict><key>x</key>" + QByteArray("<array>").repeated(20) +
                        QByteArray("</array>").repeated(20) +
                        "<key>URL</key><string>https://n/</string></dict></plist>");
    test::writeFile(inFolder(u"big.url"_qs), url + QByteArray(2 << 20, '\n'));
    test::writeFile(inFolder(u"deep.webloc"_qs),
                    "<plist>" + QByteArray("<array>").repeated(140000));
    test::writeFile(inFolder(u"deepbin.webloc"_qs), deepBinaryPlist(100000));
    test::writeFile(inFolder(u"garbage.webloc"_qs), randomBytes(4096));
    test::writeFile(inFolder(u"garbage.url"_qs), randomBytes(4096));
    test::writeFile(inFolder(u"garbage.inetloc"_qs), "bplist00" + randomBytes(4096));
    const QByteArray folder = QFile::encodeName(test::shortcutFolder());
    const int odd =
        ::open((folder + "/caf\xE9.webloc").constData(), O_WRONLY | O_CREAT | O_EXCL, 0644);
    ASSERT_GE(odd, 0);
    ::close(odd);
    ASSERT_EQ(::mkfifo((folder + "/pipe.url").constData(), 0644), 0);
    ASSERT_EQ(::mkfifo((folder + "/.hidden-pipe").constData(), 0644), 0);
    makeSocket(inFolder(u"socket.webloc"_qs));
    ASSERT_TRUE(QFile::link(inFolder(u"pipe.url"_qs), inFolder(u"pipelink.webloc"_qs)));
    ASSERT_TRUE(QFile::link(u"/dev/zero"_qs, inFolder(u"zero.url"_qs)));
    ASSERT_TRUE(QFile::link(u"/dev/tty"_qs, inFolder(u"tty.webloc"_qs)));
    ASSERT_TRUE(QFile::link(inFolder(u"gone"_qs), inFolder(u"dangling.url"_qs)));
    ASSERT_TRUE(QFile::link(inFolder(u"loop.url"_qs), inFolder(u"loop.url"_qs)));

    const QList<IndexedFile> files = FileIndex::scan();
    QStringList names;
    for (const IndexedFile &file : files) {
        names.append(file.displayName);
        const std::optional<QString> target = ShortcutURL::target(file.url);
        if (file.displayName == u"neighbour")
            EXPECT_EQ(target, u"https://a/"_qs);
        else if (file.displayName == u"nested")
            EXPECT_EQ(target, u"https://n/"_qs);
        else
            EXPECT_EQ(target, std::nullopt) << file.displayName.toStdString();
        ShortcutURL::subtitle(file.url);
    }
    EXPECT_EQ(names,
              QStringList({u"big"_qs, u"caf\uFFFD"_qs, u"deep"_qs, u"deepbin"_qs, u"garbage"_qs,
                           u"garbage"_qs, u"garbage"_qs, u"neighbour"_qs, u"nested"_qs}));

    for (const QString &unlisted :
         {u"pipe.url"_qs, u"pipelink.webloc"_qs, u"socket.webloc"_qs, u"zero.url"_qs,
          u"tty.webloc"_qs, u"dangling.url"_qs, u"loop.url"_qs}) {
        const QUrl file = QUrl::fromLocalFile(inFolder(unlisted));
        EXPECT_EQ(ShortcutURL::target(file), std::nullopt) << unlisted.toStdString();
        ShortcutURL::subtitle(file);
    }
    ::alarm(0);
}

} // namespace
