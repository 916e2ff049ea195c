#include "support/TestSupport.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>

#include <gtest/gtest.h>

namespace pindle::test {

QString homePath()
{
    return QDir::homePath();
}

QString shortcutFolder()
{
    return homePath() + QStringLiteral("/conflocal/urls");
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
    writeFile(path, QByteArrayLiteral("<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<!DOCTYPE plist "
                                      "PUBLIC \"-//Apple//DTD PLIST 1.0//EN\" "
                                      "\"http://www.apple.com/DTDs/PropertyList-1.0.dtd\">\n"
                                      "<plist version=\"1.0\"><dict><key>URL</key><string>") +
                        url.toHtmlEscaped().toUtf8() +
                        QByteArrayLiteral("</string></dict></plist>\n"));
    return path;
}

} // namespace pindle::test
