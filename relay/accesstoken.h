#pragma once

#include <QByteArray>
#include <QString>

#include <QtGlobal>

namespace relay {

// The token a connection carries when the relay has a secret: the hex
// HMAC-SHA256 of "<boardId>:<accountId>" under the secret. Whoever hands out
// access (the host's server) computes it; the relay only checks it.
class AccessToken
{
public:
    static QByteArray make(const QByteArray& secret, const QString& boardId, qint64 accountId);
    static bool matches(const QByteArray& secret, const QString& boardId, qint64 accountId, const QByteArray& token);
    // A secret file's contents without the line end an editor leaves.
    static QByteArray secretFromFile(const QByteArray& contents);
};

} // namespace relay
