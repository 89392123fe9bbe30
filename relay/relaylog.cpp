#include "relay/relaylog.h"

#include <QDateTime>
#include <QJsonDocument>
#include <QJsonObject>

#include <cstdio>

namespace relay {

Q_LOGGING_CATEGORY(lcRelay, "whiteboard.relay")

namespace {

const char* levelOf(QtMsgType type)
{
    switch (type) {
    case QtDebugMsg:
        return "debug";
    case QtInfoMsg:
        return "info";
    case QtWarningMsg:
        return "warning";
    case QtCriticalMsg:
        return "critical";
    case QtFatalMsg:
        return "fatal";
    }
    return "info";
}

void jsonLine(QtMsgType type, const QMessageLogContext& context, const QString& message)
{
    const QJsonObject line {
        { QStringLiteral("time"), QDateTime::currentDateTimeUtc().toString(Qt::ISODateWithMs) },
        { QStringLiteral("level"), QLatin1String(levelOf(type)) },
        { QStringLiteral("category"), QLatin1String(context.category ? context.category : "default") },
        { QStringLiteral("message"), message },
    };
    // One write per line, so that lines of several threads do not mix.
    const QByteArray text = QJsonDocument(line).toJson(QJsonDocument::Compact) + '\n';
    std::fwrite(text.constData(), 1, size_t(text.size()), stderr);
    std::fflush(stderr);
}

} // namespace

void installJsonLog()
{
    qInstallMessageHandler(jsonLine);
}

} // namespace relay
