#include "core/LocalPath.h"

namespace pindle::LocalPath {

QByteArray nativePath(const QUrl &file)
{
    return QByteArray::fromPercentEncoding(file.path(QUrl::FullyEncoded).toLatin1());
}

QUrl fileUrl(QByteArrayView nativePath)
{
    QUrl url;
    url.setScheme(QStringLiteral("file"));
    url.setPath(QString::fromLatin1(nativePath.toByteArray().toPercentEncoding("/")),
                QUrl::TolerantMode);
    return url;
}

} // namespace pindle::LocalPath
