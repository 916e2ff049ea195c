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

TEST(ShortcutReaders, ReadOnlyTheirOwnFormatsAndGiveTheRowsSubtitle)
{
    const std::optional<QString> none;
    QList<std::tuple<QString, QByteArray, std::optional<QString>>> cases = {
        // Property lists: only a string under "URL" in a root dictionary, as it stands.
        {u"xml.webloc"_s, webloc, u"https://a/?b&c"_s},
        {u"Home.WEBLOC"_s, bom + webloc, u"https://a/?b&c"_s},
        {u"binary.inetloc"_s, binaryPlist(webloc), u"https://a/?b&c"_s},
        {u"bom.webloc"_s, bom + binaryPlist(webloc), u"https://a/?b&c"_s},
        {u"as-is.webloc"_s, xmlPlist("<dict><key>URL</key><string> x </string></dict>"), u" x "_s},
        {u"empty.webloc"_s, xmlPlist("<dict><key>URL</key><string/></dict>"), QString()},
        {u"array.webloc"_s, xmlPlist("<array><string>https://a/</string></array>"), none},
        {u"number.inetloc"_s, binaryPlist(xmlPlist("<dict><key>URL</key><real>3</real></dict>")),
         none},
        {u"lower.webloc"_s, xmlPlist("<dict><key>url</key><string>https://a/</string></dict>"),
         none},
        {u"ini.webloc"_s, "[InternetShortcut]\nURL=https://a/\n", none},
        {u"plist.url"_s, webloc, none},
        // Ini files: the first URL line, in any section and case, trimmed of blanks.
        {u"1.url"_s, "[InternetShortcut]\r\nURL=https://a/b?c=d\r\n", u"https://a/b?c=d"_s},
        {u"2.URL"_s, bom + "[Other]\n \t url=\t https://a/ \xC2\xA0\t", u"https://a/"_s},
        {u"3.url"_s, "BASEURL=https://b/\nURL = https://c/\nURL=https://a/", u"https://a/"_s},
        {u"4.url"_s, "URL=\xCC\x81https://b/\nURL=https://a/", u"https://a/"_s},
        {u"5.url"_s, "URL=\r\nURL=https://a/", none},
        {u"6.url"_s, "[InternetShortcut]\nIconIndex=0\n", none},
        // Windows-1252 is not UTF-8: read as ISO Latin-1, where 0x85 ends a line.
        {u"7.url"_s, "URL=https://a/caf\xE9\x85tail", u"https://a/caf\u00E9"_s},
    };
    for (const char *newline : {"\n", "\v", "\f", "\r", "\xC2\x85", "\xE2\x80\xA8", "\xE2\x80\xA9"})
        cases.append({u"nl"_s + QString::number(cases.size()) + u".url"_s,
                      QByteArray("x") + newline + "URL=https://a/" + newline + "tail",
                      u"https://a/"_s});
    for (const auto &[name, bytes, expected] : cases) {
        test::writeFile(inFolder(name).toLocalFile(), bytes);
        EXPECT_EQ(ShortcutURL::target(inFolder(name)), expected) << name.toStdString();
    }
    // A row's subtitle: the target, else the type's description, else nothing.
    test::writeFile(inFolder(u"notes.txt"_s).toLocalFile(), "notes\n");
    const QString textKind = QMimeDatabase().mimeTypeForName(u"text/plain"_s).comment();
    EXPECT_FALSE(textKind.isEmpty());
    EXPECT_EQ(ShortcutURL::subtitle(inFolder(u"xml.webloc"_s)), u"https://a/?b&c"_s);
    EXPECT_EQ(ShortcutURL::subtitle(inFolder(u"array.webloc"_s)), u"Web location"_s);
    EXPECT_EQ(ShortcutURL::subtitle(inFolder(u"empty.webloc"_s)), QString());
    EXPECT_EQ(ShortcutURL::subtitle(inFolder(u"notes.txt"_s)), textKind);
    EXPECT_EQ(ShortcutURL::subtitle(inFolder(u"missing.txt"_s)), QString());
}

} // namespace
