#include "util.h"

#include <QUrl>

Util& Util::instance()
{
    static Util util;
    return util;
}

QString Util::toLocalFile(const QString& pathOrUrl) const
{
    const QUrl url(pathOrUrl);
    if (url.isLocalFile())
        return url.toLocalFile();
    if (url.scheme() == QLatin1String("qrc"))
        return QLatin1Char(':') + url.path();
    return pathOrUrl;
}
