// Renders the panel for review: eight rows with one selected, and a message row, each in a light
// and a dark palette. Run under an X server (screenshots.sh beside it starts Xvfb); writes
// <out>/panel-{rows,message}-{light,dark}.png.

#include "platform/fake/FakePlatform.h"
#include "ui/CommandField.h"
#include "ui/PanelController.h"

#include <QApplication>
#include <QDir>
#include <QFile>
#include <QHBoxLayout>
#include <QIcon>
#include <QScreen>
#include <QStyle>
#include <QStyleFactory>
#include <QTemporaryDir>
#include <QTest>

#include <cstdio>

using namespace Qt::StringLiterals;

using namespace pindle;

namespace {

class ThemedWorkspace : public platform::fake::FakeWorkspace
{
public:
    QIcon iconForFile(const QString &) override { return QIcon::fromTheme(u"text-html"_s); }
};

QPalette palette(bool dark)
{
    const std::unique_ptr<QStyle> fusion(QStyleFactory::create(u"Fusion"_s));
    QPalette palette = fusion->standardPalette();
    const QColor text = dark ? QColor(0xee, 0xee, 0xf0) : QColor(0x1c, 0x1c, 0x1e);
    palette.setColor(QPalette::Window, dark ? QColor(0x2b, 0x2b, 0x2e) : QColor(0xf6, 0xf6, 0xf7));
    palette.setColor(QPalette::Base, dark ? QColor(0x1f, 0x1f, 0x22) : Qt::white);
    for (const QPalette::ColorRole role :
         {QPalette::WindowText, QPalette::Text, QPalette::ButtonText})
        palette.setColor(role, text);
    palette.setColor(QPalette::Highlight,
                     dark ? QColor(0x5e, 0x9c, 0xff) : QColor(0x2a, 0x6f, 0xdb));
    palette.setColor(QPalette::PlaceholderText,
                     QColor(text.red(), text.green(), text.blue(), 0x8c));
    return palette;
}

// Long names and addresses show the eliding; the last file has no address, so its path shows.
QList<ScoredFile> sampleResults(const QString &folder)
{
    const struct
    {
        const char *name;
        qsizetype first, second;
        const char *target;
    } samples[] = {
        {"NewsFeed", 0, 4, "https://newsfeed.example.com/today"},
        {"Netflix", 0, 3, "https://www.netflix.com/browse"},
        {"Nextcloud Files", 0, 10, "https://cloud.example.org/apps/files/"},
        {"Notion \u2014 Team Wiki", 0, 9, "https://www.notion.so/team/wiki-3f2a9c"},
        {"NixOS Search: packages and options for the unstable channel, every module documented", 0,
         20, "https://search.nixos.org/packages?channel=unstable&from=0&size=50&sort=relevance"},
        {"Caf\u00e9 Finder", 2, 5, "https://cafe-finder.example.net/"},
        {"Nature Food", 0, 7, "https://www.nature.com/natfood/"},
        {"nfs-notes.txt", 0, 1, nullptr},
    };
    QList<ScoredFile> results;
    for (const auto &sample : samples) {
        const QString name = QString::fromUtf8(sample.name);
        const QString path = folder + u'/' + name + (sample.target ? u".url"_s : QString());
        QFile file(path);
        if (file.open(QIODevice::WriteOnly))
            file.write(sample.target ? QByteArray("[InternetShortcut]\r\nURL=") + sample.target
                                     : QByteArray("mount -t nfs4 server:/export /mnt\n"));
        results.append({{QUrl::fromLocalFile(path), name}, 0, {sample.first, sample.second}});
    }
    return results;
}

bool shoot(const QString &path, bool dark, bool message, const QString &folder)
{
    QApplication::setPalette(palette(dark));
    // A coloured backdrop, so the corners and the edge can be judged.
    QWidget desktop;
    desktop.setWindowFlags(Qt::FramelessWindowHint | Qt::WindowStaysOnBottomHint);
    desktop.setStyleSheet(dark ? u"background: #3a1f3d"_s : u"background: #7aa7d9"_s);
    desktop.setGeometry(QGuiApplication::primaryScreen()->geometry());
    desktop.show();

    auto *header = new QWidget;
    ui::PanelController panel(header, 58);
    auto *field = new ui::CommandField(header);
    QFont font = QApplication::font();
    font.setPixelSize(24);
    field->setFont(font);
    field->setPlaceholderText(u"Pindle to:"_s);
    field->setText(message ? u"news"_s : u"nf"_s);
    (new QHBoxLayout(header))->addWidget(field, 0, Qt::AlignVCenter);
    header->layout()->setContentsMargins(18, 0, 18, 0);
    if (message) {
        panel.renderRows(QDir::homePath() + u"/conflocal/urls not found"_s);
    } else {
        panel.results = sampleResults(folder);
        panel.selectedIndex = 2;
        panel.renderRows(std::nullopt);
    }
    panel.show();
    panel.panel()->activateWindow();
    field->setFocus();
    if (!QTest::qWaitForWindowExposed(panel.panel()))
        qWarning("the panel was not exposed; the screenshot may be empty");
    QTest::qWait(400);

    const QRect area = panel.panel()->geometry().adjusted(-40, -40, 40, 40) &
                       QGuiApplication::primaryScreen()->geometry();
    const QPixmap shot = QGuiApplication::primaryScreen()->grabWindow(0, area.x(), area.y(),
                                                                      area.width(), area.height());
    panel.hide(false);
    return shot.save(path);
}

} // namespace

int main(int argc, char **argv)
{
    QApplication::setStyle(u"Fusion"_s);
    QApplication app(argc, argv);
    QIcon::setThemeName(u"Adwaita"_s);
    const QString out = argc > 1 ? QString::fromLocal8Bit(argv[1]) : u"."_s;
    QDir().mkpath(out);

    platform::fake::installFakePlatform();
    platform::services().workspace = std::make_unique<ThemedWorkspace>();
    // The fake screen matches the Xvfb screen the script starts, so placement is the real one.
    const QRectF screen = QGuiApplication::primaryScreen()->geometry();
    auto *screens = static_cast<platform::fake::FakeScreens *>(platform::services().screens.get());
    screens->all = {{screen, screen}};
    screens->main = screens->all.first();
    screens->mouse = screen.center();

    QTemporaryDir folder;
    bool ok = true;
    for (const bool dark : {false, true}) {
        for (const bool message : {false, true}) {
            const QString path = u"%1/panel-%2-%3.png"_s.arg(
                out, message ? u"message"_s : u"rows"_s, dark ? u"dark"_s : u"light"_s);
            const bool saved = shoot(path, dark, message, folder.path());
            std::printf("%s %s\n", saved ? "wrote" : "FAILED", qPrintable(path));
            ok = ok && saved;
        }
    }
    return ok ? 0 : 1;
}
