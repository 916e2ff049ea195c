#include "core/FileIndex.h"
#include "core/ShortcutURL.h"
#include "support/TestSupport.h"

#include <QMimeDatabase>

#include <gtest/gtest.h>
#include <plist/plist.h>

#include <cstdlib>

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
    return "<plist version=\"1.0\">" + root + "</plist>\n";
}

QByteArray binaryPlist(const QByteArray &xml)
{
    plist_t root = nullptr;
    plist_from_xml(xml.constData(), uint32_t(xml.size()), &root);
    char *bytes = nullptr;
    uint32_t length = 0;
    plist_to_bin(root, &bytes, &length);
    QByteArray result(bytes, length);
    std::free(bytes); // malloc'd; plist_to_bin_free is gone from libplist 2.3
    plist_free(root);
    return result;
}

const QByteArray bom = "\xEF\xBB\xBF";
// As browsers write them.
const QByteArray webloc = "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<!DOCTYPE plist PUBLIC "
                          "\"-//Apple//DTD PLIST 1.0//EN\" \"http://www.apple.com/DTDs/"
                          "PropertyList-1.0.dtd\">\n" +
                          xmlPlist("<dict><key>Other</key><integer>1</integer><key>URL</key>"
                                   "<string>https://a/?b&amp;c</string></dict>");

TEST(PropertyListReader, ReadsOnlyAStringUnderURLInARootDictionary)
{
    const std::optional<QString> none;
    const QList<std::tuple<QString, QByteArray, std::optional<QString>>> cases = {
        {u"xml.webloc"_qs, webloc, u"https://a/?b&c"_qs},
        {u"Home.WEBLOC"_qs, bom + webloc, u"https://a/?b&c"_qs},
        {u"binary.inetloc"_qs, binaryPlist(webloc), u"https://a/?b&c"_qs},
        {u"bom.webloc"_qs, bom + binaryPlist(webloc), u"https://a/?b&c"_qs},
        {u"as-is.webloc"_qs, xmlPlist("<dict><key>URL</key><string> x </string></dict>"),
         u" x "_qs},
        {u"empty.webloc"_qs, xmlPlist("<dict><key>URL</key><string/></dict>"), QString()},
        {u"array.webloc"_qs, xmlPlist("<array><string>https://a/</string></array>"), none},
        {u"number.inetloc"_qs, binaryPlist(xmlPlist("<dict><key>URL</key><real>3</real></dict>")),
         none},
        {u"nested.webloc"_qs, xmlPlist("<dict><key>URL</key><dict/></dict>"), none},
        {u"lower.webloc"_qs, xmlPlist("<dict><key>url</key><string>https://a/</string></dict>"),
         none},
        {u"ini.webloc"_qs, "[InternetShortcut]\nURL=https://a/\n", none},
        {u"plist.url"_qs, webloc, none},
        {u"plist.txt"_qs, webloc, none}};
    for (const auto &[name, bytes, expected] : cases)
        EXPECT_EQ(targetOf(name, bytes), expected) << name.toStdString();
}

TEST(IniReader, TakesTheFirstUrlLineTrimmedOfBlanks)
{
    const QList<std::pair<QByteArray, std::optional<QString>>> cases = {
        {"[InternetShortcut]\r\nURL=https://a/b?c=d\r\n", u"https://a/b?c=d"_qs},
        {"[Other]\n \t url=https://a/", u"https://a/"_qs},
        {bom + "UrL=https://a/", u"https://a/"_qs},
        {"URL=\t https://a/ \xC2\xA0\t", u"https://a/"_qs},
        {"BASEURL=https://b/\nURL = https://c/\nURL=https://a/", u"https://a/"_qs},
        {"URL=\xCC\x81https://b/\nURL=https://a/", u"https://a/"_qs},
        {"URL=\r\nURL=https://a/", std::nullopt},
        {"[InternetShortcut]\nIconIndex=0\n", std::nullopt},
        // Windows-1252 is not UTF-8: read as ISO Latin-1, where 0x85 ends a line.
        {"URL=https://a/caf\xE9\x85tail", u"https://a/caf\u00E9"_qs}};
    for (qsizetype i = 0; i < cases.size(); ++i)
        EXPECT_EQ(targetOf(QString::number(i) + u".url"_qs, cases[i].first), cases[i].second)
            << cases[i].first.constData();

    for (const char *newline :
         {"\n", "\v", "\f", "\r", "\xC2\x85", "\xE2\x80\xA8", "\xE2\x80\xA9"}) {
        const QByteArray text = QByteArray("x") + newline + "URL=https://a/" + newline + "tail";
        EXPECT_EQ(targetOf(u"nl"_qs + QString::fromLatin1(text.toHex()) + u".URL"_qs, text),
                  u"https://a/"_qs);
    }
}

TEST(Subtitle, IsTheTargetElseTheTypeDescriptionElseEmpty)
{
    targetOf(u"a.webloc"_qs, webloc);
    targetOf(u"array.webloc"_qs, xmlPlist("<array/>"));
    targetOf(u"empty.webloc"_qs, xmlPlist("<dict><key>URL</key><string></string></dict>"));
    targetOf(u"notes.txt"_qs, "notes\n");
    const QString textKind = QMimeDatabase().mimeTypeForName(u"text/plain"_qs).comment();

    EXPECT_EQ(ShortcutURL::subtitle(inFolder(u"a.webloc"_qs)), u"https://a/?b&c"_qs);
    EXPECT_EQ(ShortcutURL::subtitle(inFolder(u"array.webloc"_qs)), u"Web location"_qs);
    EXPECT_EQ(ShortcutURL::subtitle(inFolder(u"empty.webloc"_qs)), QString());
    EXPECT_FALSE(textKind.isEmpty());
    EXPECT_EQ(ShortcutURL::subtitle(inFolder(u"notes.txt"_qs)), textKind);
    EXPECT_EQ(ShortcutURL::subtitle(inFolder(u"missing.txt"_qs)), QString());
}

} // namespace
