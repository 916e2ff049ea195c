#include "core/FileIndex.h"
#include "core/ShortcutURL.h"
#include "support/TestSupport.h"

#include <QDir>
#include <QFile>
#include <QMimeDatabase>

#include <gtest/gtest.h>
#include <plist/plist.h>

using namespace pindle;

namespace {

QUrl inFolder(const QString &name)
{
    return QUrl::fromLocalFile(test::shortcutFolder() + u'/' + name);
}

std::optional<QString> targetOf(const QString &name, const QByteArray &bytes)
{
    test::writeFile(inFolder(name).toLocalFile(), bytes);
    return ShortcutURL::target(inFolder(name));
}

QByteArray xmlPlist(const QByteArray &root)
{
    return R"(<?xml version="1.0" encoding="UTF-8"?>
<!DOCTYPE plist PUBLIC "-//Apple//DTD PLIST 1.0//EN" "http://www.apple.com/DTDs/PropertyList-1.0.dtd">
<plist version="1.0">)" +
           root + "</plist>\n";
}

QByteArray binaryPlist(const QByteArray &xml)
{
    plist_t root = nullptr;
    plist_from_xml(xml.constData(), uint32_t(xml.size()), &root);
    char *bytes = nullptr;
    uint32_t length = 0;
    plist_to_bin(root, &bytes, &length);
    QByteArray result(bytes, length);
    plist_to_bin_free(bytes);
    plist_free(root);
    return result;
}

const QByteArray webloc = xmlPlist("<dict><key>Other</key><integer>1</integer>"
                                   "<key>URL</key><string>https://a/b?c=d&amp;e</string></dict>");

TEST(PropertyListReader, ReadsXmlAndBinaryListsWhateverTheExtensionCase)
{
    const QString expected = u"https://a/b?c=d&e"_qs;
    EXPECT_EQ(targetOf(u"xml.webloc"_qs, webloc), expected);
    EXPECT_EQ(targetOf(u"Home.WEBLOC"_qs, webloc), expected);
    EXPECT_EQ(targetOf(u"bin.inetloc"_qs, binaryPlist(webloc)), expected);
    EXPECT_EQ(targetOf(u"bom.webloc"_qs, "\xEF\xBB\xBF" + webloc), expected);
    EXPECT_EQ(targetOf(u"bombin.webloc"_qs, "\xEF\xBB\xBF" + binaryPlist(webloc)), expected);
    EXPECT_EQ(
        targetOf(u"blank.webloc"_qs, xmlPlist("<dict><key>URL</key><string>  x </string></dict>")),
        u"  x "_qs);
    EXPECT_EQ(targetOf(u"empty.webloc"_qs, xmlPlist("<dict><key>URL</key><string/></dict>")),
              QString());
}

TEST(PropertyListReader, FindsNoTargetWithoutAStringUnderURLInARootDictionary)
{
    for (const QByteArray &root :
         {QByteArray("<array><string>https://a/</string></array>"),
          QByteArray("<dict><key>URL</key><integer>3</integer></dict>"),
          QByteArray("<dict><key>URL</key><dict/></dict>"),
          QByteArray("<dict><key>url</key><string>https://a/</string></dict>")}) {
        EXPECT_EQ(targetOf(u"x.webloc"_qs, xmlPlist(root)), std::nullopt) << root.constData();
        EXPECT_EQ(targetOf(u"x.inetloc"_qs, binaryPlist(xmlPlist(root))), std::nullopt);
        ShortcutURL::clearCaches();
    }
    EXPECT_EQ(targetOf(u"ini.webloc"_qs, "[InternetShortcut]\nURL=https://a/\n"), std::nullopt);
    EXPECT_EQ(targetOf(u"plist.url"_qs, webloc), std::nullopt);
    EXPECT_EQ(targetOf(u"plist.txt"_qs, webloc), std::nullopt);
}

TEST(IniReader, TakesTheFirstUrlLineTrimmedOfBlanks)
{
    const QList<std::pair<QByteArray, std::optional<QString>>> cases = {
        {"[InternetShortcut]\r\nURL=https://a/b?c=d\r\n", u"https://a/b?c=d"_qs},
        {"[Other]\n \t url=https://a/b?c=d", u"https://a/b?c=d"_qs},
        {"\xEF\xBB\xBFUrL=https://a/", u"https://a/"_qs},
        {"URL=\t https://a/ \xC2\xA0\t", u"https://a/"_qs},
        {"BASEURL=https://b/\nURL = https://c/\nURL=https://a/", u"https://a/"_qs},
        {"URL=\r\nURL=https://a/", std::nullopt},
        {"URL=\xCC\x81https://b/\nURL=https://a/", u"https://a/"_qs},
        {"[InternetShortcut]\nIconIndex=0\n", std::nullopt},
        // Windows-1252 bytes are not UTF-8; read as ISO Latin-1, where 0x85 ends a line.
        {"URL=https://a/caf\xE9\x85tail", u"https://a/caf\u00E9"_qs},
    };
    for (const auto &[bytes, expected] : cases) {
        EXPECT_EQ(targetOf(u"x.url"_qs, bytes), expected) << bytes.constData();
        ShortcutURL::clearCaches();
    }
}

TEST(IniReader, EndsLinesAtEveryNewlineCharacter)
{
    for (const char *newline :
         {"\n", "\v", "\f", "\r", "\xC2\x85", "\xE2\x80\xA8", "\xE2\x80\xA9"}) {
        const QByteArray text = QByteArray("junk") + newline + "URL=https://a/" + newline + "tail";
        EXPECT_EQ(targetOf(u"x.URL"_qs, text), u"https://a/"_qs) << text.toHex().constData();
        ShortcutURL::clearCaches();
    }
}

TEST(Subtitle, IsTheTargetElseTheTypeDescriptionElseEmpty)
{
    test::writeFile(inFolder(u"a.webloc"_qs).toLocalFile(), webloc);
    test::writeFile(inFolder(u"b.webloc"_qs).toLocalFile(), xmlPlist("<array/>"));
    test::writeFile(inFolder(u"c.url"_qs).toLocalFile(), "URL=\n");
    test::writeFile(inFolder(u"empty.webloc"_qs).toLocalFile(),
                    xmlPlist("<dict><key>URL</key><string></string></dict>"));
    test::writeFile(inFolder(u"notes.txt"_qs).toLocalFile(), "notes\n");
    const QString textKind = QMimeDatabase().mimeTypeForName(u"text/plain"_qs).comment();

    EXPECT_EQ(ShortcutURL::subtitle(inFolder(u"a.webloc"_qs)), u"https://a/b?c=d&e"_qs);
    EXPECT_EQ(ShortcutURL::subtitle(inFolder(u"b.webloc"_qs)), u"Web location"_qs);
    EXPECT_EQ(ShortcutURL::subtitle(inFolder(u"c.url"_qs)),
              QMimeDatabase().mimeTypeForName(u"application/x-mswinurl"_qs).comment());
    EXPECT_EQ(ShortcutURL::subtitle(inFolder(u"empty.webloc"_qs)), QString());
    EXPECT_FALSE(textKind.isEmpty());
    EXPECT_EQ(ShortcutURL::subtitle(inFolder(u"notes.txt"_qs)), textKind);
    EXPECT_EQ(ShortcutURL::subtitle(inFolder(u"missing.txt"_qs)), QString());
}

TEST(ReaderCaches, AnswerFromMemoryUntilTheNextScan)
{
    const QUrl edited = inFolder(u"edited.url"_qs);
    const QUrl late = inFolder(u"late.webloc"_qs);
    test::writeFile(edited.toLocalFile(), "URL=https://old/");
    EXPECT_EQ(ShortcutURL::target(edited), u"https://old/"_qs);
    EXPECT_EQ(ShortcutURL::target(late), std::nullopt);
    EXPECT_EQ(ShortcutURL::subtitle(late), QString());

    test::writeFile(edited.toLocalFile(), "URL=https://new/");
    test::writeFile(late.toLocalFile(), webloc);
    EXPECT_EQ(ShortcutURL::target(edited), u"https://old/"_qs);
    EXPECT_EQ(ShortcutURL::subtitle(edited), u"https://old/"_qs);
    EXPECT_EQ(ShortcutURL::target(late), std::nullopt);
    EXPECT_EQ(ShortcutURL::subtitle(late), QString());

    FileIndex::scan();
    EXPECT_EQ(ShortcutURL::subtitle(edited), u"https://new/"_qs);
    EXPECT_EQ(ShortcutURL::target(late), u"https://a/b?c=d&e"_qs);

    // A scan that finds no folder still forgets what was read.
    ASSERT_TRUE(QDir(test::shortcutFolder()).removeRecursively());
    FileIndex::scan();
    EXPECT_EQ(ShortcutURL::target(edited), std::nullopt);
    EXPECT_EQ(ShortcutURL::subtitle(late), QString());
}

} // namespace
