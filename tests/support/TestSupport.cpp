#include "support/TestSupport.h"

#include "core/ShortcutURL.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>

#include <gtest/gtest.h>

#include <fcntl.h>
#include <filesystem>
#include <sys/stat.h>
#include <unistd.h>
#include <vector>

using namespace Qt::StringLiterals;

namespace pindle::test {

namespace {

// Through std::filesystem, which also removes the names that are not UTF-8 some tests make.
class EmptyHome : public testing::EmptyTestEventListener
{
    void OnTestStart(const testing::TestInfo &) override
    {
        const std::filesystem::path home = QFile::encodeName(homePath()).toStdString();
        std::error_code error;
        const std::vector<std::filesystem::directory_entry> entries(
            std::filesystem::directory_iterator(home, error), {});
        for (const auto &entry : entries) {
            if (std::filesystem::remove_all(entry.path(), error) == 0 || error)
                ADD_FAILURE() << "could not remove " << entry.path() << ": " << error.message();
        }
        ShortcutURL::clearCaches();
    }
};

} // namespace

void emptyHomeBeforeEachTest()
{
    testing::UnitTest::GetInstance()->listeners().Append(new EmptyHome);
}

QString homePath()
{
    return QDir::homePath();
}

QString shortcutFolder()
{
    return homePath() + QStringLiteral("/conflocal/urls");
}

QString inFolder(const QString &name)
{
    return shortcutFolder() + u'/' + name;
}

void writeFile(const QString &path, const QByteArray &bytes)
{
    ASSERT_TRUE(QDir().mkpath(QFileInfo(path).absolutePath())) << path.toStdString();
    QFile file(path);
    ASSERT_TRUE(file.open(QIODevice::WriteOnly | QIODevice::Truncate)) << path.toStdString();
    ASSERT_EQ(file.write(bytes), bytes.size());
}

QByteArray readFile(const QString &path)
{
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly))
        return {};
    return file.readAll();
}

QString writeWebloc(const QString &name, const QString &url)
{
    const QString path = shortcutFolder() + u'/' + name + QStringLiteral(".webloc");
    writeFile(path, QByteArrayLiteral("<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n"
                                      "<plist version=\"1.0\"><dict><key>URL</key><string>") +
                        url.toHtmlEscaped().toUtf8() +
                        QByteArrayLiteral("</string></dict></plist>\n"));
    return path;
}

PipeSwapper::PipeSwapper(const QString &path)
{
    const QByteArray target = QFile::encodeName(path);
    // Hidden names, which no scan lists.
    const QFileInfo info(path);
    const QByteArray hidden = QFile::encodeName(info.path() + u"/."_s + info.fileName());
    const QByteArray file = hidden + ".swap-file";
    const QByteArray pipe = hidden + ".swap-pipe";
    m_thread = std::thread([this, target, file, pipe] {
        while (!m_stop) {
            const int fd = ::open(file.constData(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0644);
            if (fd >= 0) {
                [[maybe_unused]] const ssize_t written = ::write(fd, "plain text\n", 11);
                ::close(fd);
            }
            ::rename(file.constData(), target.constData());
            ::mkfifo(pipe.constData(), 0644);
            ::rename(pipe.constData(), target.constData());
        }
    });
}

PipeSwapper::~PipeSwapper()
{
    m_stop = true;
    m_thread.join();
}

} // namespace pindle::test
