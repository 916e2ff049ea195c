// Renders the panel the way a user sees it, for review: eight rows with one selected, and a
// message row, each in a light and a dark palette. Run under an X server (tests/ui/screenshots.sh
// starts Xvfb); writes <out>/panel-{rows,message}-{light,dark}.png.

#include "platform/fake/FakePlatform.h"
#include "ui/CommandField.h"
#include "ui/PanelController.h"

#include <QApplication>
#include <QDir>
#include <QFile>
#include <QHBoxLayout>
#include <QIcon>
#include <QPainter>
#include <QScreen>
#include <QStyle>
#include <QStyleFactory>
#include <QTemporaryDir>
#include <QTest>

#include <cstdio>
#include <memory>

using namespace pindle;

namespace {

class ThemedWorkspace : public platform::fake::FakeWorkspace
{
public:
    QIcon iconForFile(const QString &) override
    {
        return QIcon::fromTheme(QStringLiteral("text-html"));
    }
};

// Stands in for the desktop behind the panel, so the corners and the edge can be judged.
class Desktop : public QWidget
{
public:
    explicit Desktop(bool dark) : m_dark(dark)
    {
        setWindowFlags(Qt::FramelessWindowHint | Qt::WindowStaysOnBottomHint);
    }

protected:
    void paintEvent(QPaintEvent *) override
    {
        QPainter painter(this);
        QLinearGradient gradient(0, 0, width(), height());
        gradient.setColorAt(0, m_dark ? QColor(0x1d, 0x2b, 0x3a) : QColor(0x7a, 0xa7, 0xd9));
        gradient.setColorAt(1, m_dark ? QColor(0x3a, 0x1f, 0x3d) : QColor(0xe8, 0xb8, 0xc8));
        painter.fillRect(rect(), gradient);
    }

private:
    bool m_dark;
};

QPalette darkPalette()
{
    QPalette palette;
    palette.setColor(QPalette::Window, QColor(0x2b, 0x2b, 0x2e));
    palette.setColor(QPalette::WindowText, QColor(0xee, 0xee, 0xf0));
    palette.setColor(QPalette::Base, QColor(0x1f, 0x1f, 0x22));
    palette.setColor(QPalette::Text, QColor(0xee, 0xee, 0xf0));
    palette.setColor(QPalette::Button, QColor(0x35, 0x35, 0x39));
    palette.setColor(QPalette::ButtonText, QColor(0xee, 0xee, 0xf0));
    palette.setColor(QPalette::Highlight, QColor(0x5e, 0x9c, 0xff));
    palette.setColor(QPalette::HighlightedText, Qt::white);
    palette.setColor(QPalette::PlaceholderText, QColor(0xee, 0xee, 0xf0, 0x8c));
    return palette;
}

QPalette lightPalette()
{
    const std::unique_ptr<QStyle> fusion(QStyleFactory::create(QStringLiteral("Fusion")));
    QPalette palette = fusion->standardPalette();
    palette.setColor(QPalette::Window, QColor(0xf6, 0xf6, 0xf7));
    palette.setColor(QPalette::Highlight, QColor(0x2a, 0x6f, 0xdb));
    palette.setColor(QPalette::PlaceholderText, QColor(0x1c, 0x1c, 0x1e, 0x80));
    return palette;
}

struct Sample
{
    const char *name;
    QList<qsizetype> positions;
    const char *target; // nullptr: a file without an address
};

QList<ScoredFile> sampleResults(const QString &folder)
{
    const QList<Sample> samples{
        {"NewsFeed", {0, 4}, "https://newsfeed.example.com/today"},
        {"Netflix", {0, 3}, "https://www.netflix.com/browse"},
        {"Nextcloud Files", {0, 10}, "https://cloud.example.org/apps/files/"},
        {"Notion \u2014 Team Wiki", {0, 9}, "https://www.notion.so/team/wiki-3f2a9c"},
        {"NixOS Search: packages and options for the unstable channel, every module documented",
         {0, 20},
         "https://search.nixos.org/packages?channel=unstable&from=0&size=50&sort=relevance"},
        {"Caf\u00e9 Finder", {2, 5}, "https://cafe-finder.example.net/"},
        {"Nature Food", {0, 7}, "https://www.nature.com/natfood/"},
        {"nfs-notes.txt", {0, 1}, nullptr},
    };
    QList<ScoredFile> results;
    for (const Sample &sample : samples) {
        const QString name = QString::fromUtf8(sample.name);
        QString path = folder + u'/' + name;
        if (sample.target != nullptr) {
            path += QStringLiteral(".url");
            QFile file(path);
            if (file.open(QIODevice::WriteOnly))
                file.write(QByteArray("[InternetShortcut]\r\nURL=") + sample.target + "\r\n");
        } else {
            QFile file(path);
            if (file.open(QIODevice::WriteOnly))
                file.write("mount -t nfs4 server:/export /mnt\n");
        }
        results.append({{QUrl::fromLocalFile(path), name}, 0, sample.positions});
    }
    return results;
}

ui::CommandField *addSearchField(QWidget *header, const QString &text)
{
    auto *field = new ui::CommandField(header);
    field->setObjectName(QStringLiteral("searchField"));
    QFont font = QApplication::font();
    font.setPixelSize(24);
    field->setFont(font);
    field->setPlaceholderText(QStringLiteral("Pindle to:"));
    field->setText(text);
    auto *layout = new QHBoxLayout(header);
    layout->setContentsMargins(18, 0, 18, 0);
    layout->addWidget(field, 0, Qt::AlignVCenter);
    return field;
}

bool shoot(const QString &path, bool dark, bool message, const QString &folder)
{
    QApplication::setPalette(dark ? darkPalette() : lightPalette());
    Desktop desktop(dark);
    desktop.setGeometry(QGuiApplication::primaryScreen()->geometry());
    desktop.show();

    auto *header = new QWidget;
    ui::PanelController panel(header, 58);
    ui::CommandField *field =
        addSearchField(header, message ? QStringLiteral("news") : QStringLiteral("nf"));
    if (message) {
        panel.renderRows(QDir::homePath() + QStringLiteral("/conflocal/urls not found"));
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
    QApplication::setStyle(QStringLiteral("Fusion"));
    QApplication app(argc, argv);
    QApplication::setApplicationDisplayName(QStringLiteral("Pindle"));
    QIcon::setThemeName(QStringLiteral("Adwaita"));
    const QString out = argc > 1 ? QString::fromLocal8Bit(argv[1]) : QStringLiteral(".");
    QDir().mkpath(out);

    platform::fake::installFakePlatform();
    platform::services().workspace = std::make_unique<ThemedWorkspace>();
    // The fake screen matches the Xvfb screen the script starts, so placement is the real one.
    const QRect screen = QGuiApplication::primaryScreen()->geometry();
    auto *screens = static_cast<platform::fake::FakeScreens *>(platform::services().screens.get());
    screens->all = {{QRectF(screen), QRectF(screen)}};
    screens->main = screens->all.first();
    screens->mouse = QPointF(screen.center());

    QTemporaryDir folder;
    bool ok = true;
    for (const bool dark : {false, true}) {
        for (const bool message : {false, true}) {
            const QString path =
                QStringLiteral("%1/panel-%2-%3.png")
                    .arg(out, message ? QStringLiteral("message") : QStringLiteral("rows"),
                         dark ? QStringLiteral("dark") : QStringLiteral("light"));
            const bool saved = shoot(path, dark, message, folder.path());
            std::printf("%s %s\n", saved ? "wrote" : "FAILED", qPrintable(path));
            ok = ok && saved;
        }
    }
    return ok ? 0 : 1;
}
