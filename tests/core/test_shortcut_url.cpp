#include "core/FileIndex.h"
#include "core/ShortcutURL.h"
#include "support/TestSupport.h"

#include <QMimeDatabase>

#include <gtest/gtest.h>
#include <plist/plist.h>

#include <cstdlib>

using namespace Qt::StringLiterals;

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
        {u"xml.webloc"_s, webloc, u"https://a/?b&c"_s},
        {u"Home.WEBLOC"_s, bom + webloc, u"https://a/?b&c"_s},
        {u"binary.inetloc"_s, binaryPlist(webloc), u"https://a/?b&c"_s},
        {u"bom.webloc"_s, bom + binaryPlist(webloc), u"https://a/?b&c"_s},
        {u"as-is.webloc"_s, xmlPlist("<dict><key>URL</key><string> x </string></dict>"), u" x "_s},
        {u"empty.webloc"_s, xmlPlist("<dict><key>URL</key><string/></dict>"), QString()},
        {u"array.webloc"_s, xmlPlist("<array><string>https://a/</string></array>"), none},
        {u"number.inetloc"_s, binaryPlist(xmlPlist("<dict><key>URL</key><real>3</real></dict>")),
         none},
        {u"nested.webloc"_s, xmlPlist("<dict><key>URL</key><dict/></dict>"), none},
        {u"lower.webloc"_s, xmlPlist("<dict><key>url</key><string>https://a/</string></dict>"),
         none},
        {u"ini.webloc"_s, "[InternetShortcut]\nURL=https://a/\n", none},
        {u"plist.url"_s, webloc, none},
        {u"plist.txt"_s, webloc, none}};
    for (const auto &[name, bytes, expected] : cases)
        EXPECT_EQ(targetOf(name, bytes), expected) << name.toStdString();
}

TEST(IniReader, TakesTheFirstUrlLineTrimmedOfBlanks)
{
    const QList<std::pair<QByteArray, std::optional<QString>>> cases = {
        {"[InternetShortcut]\r\nURL=https://a/b?c=d\r\n", u"https://a/b?c=d"_s},
        {"[Other]\n \t url=https://a/", u"https://a/"_s},
        {bom + "UrL=https://a/", u"https://a/"_s},
        {"URL=\t https://a/ \xC2\xA0\t", u"https://a/"_s},
        {"BASEURL=https://b/\nURL = https://c/\nURL=https://a/", u"https://a/"_s},
        {"URL=\xCC\x81https://b/\nURL=https://a/", u"https://a/"_s},
        {"URL=\r\nURL=https://a/", std::nullopt},
        {"[InternetShortcut]\nIconIndex=0\n", std::nullopt},
        // Windows-1252 is not UTF-8: read as ISO Latin-1, where 0x85 ends a line.
        {"URL=https://a/caf\xE9\x85tail", u"https://a/caf\u00E9"_s}};
    for (qsizetype i = 0; i < cases.size(); ++i)
        EXPECT_EQ(targetOf(QString::number(i) + u".url"_s, cases[i].first), cases[i].second)
            << cases[i].first.constData();

    for (const char *newline :
         {"\n", "\v", "\f", "\r", "\xC2\x85", "\xE2\x80\xA8", "\xE2\x80\xA9"}) {
        const QByteArray text = QByteArray("x") + newline + "URL=https://a/" + newline + "tail";
        EXPECT_EQ(targetOf(u"nl"_s + QString::fromLatin1(text.toHex()) + u".URL"_s, text),
                  u"https://a/"_s);
    }
}

TEST(Subtitle, IsTheTargetElseTheTypeDescriptionElseEmpty)
{
    targetOf(u"a.webloc"_s, webloc);
    targetOf(u"array.webloc"_s, xmlPlist("<array/>"));
    targetOf(u"empty.webloc"_s, xmlPlist("<dict><key>URL</key><string></string></dict>"));
    targetOf(u"notes.txt"_s, "notes\n");
    const QString textKind = QMimeDatabase().mimeTypeForName(u"text/plain"_s).comment();

    EXPECT_EQ(ShortcutURL::subtitle(inFolder(u"a.webloc"_s)), u"https://a/?b&c"_s);
    EXPECT_EQ(ShortcutURL::subtitle(inFolder(u"array.webloc"_s)), u"Web location"_s);
    EXPECT_EQ(ShortcutURL::subtitle(inFolder(u"empty.webloc"_s)), QString());
    EXPECT_FALSE(textKind.isEmpty());
    EXPECT_EQ(ShortcutURL::subtitle(inFolder(u"notes.txt"_s)), textKind);
    EXPECT_EQ(ShortcutURL::subtitle(inFolder(u"missing.txt"_s)), QString());
}

} // namespace
