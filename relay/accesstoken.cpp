#include "relay/accesstoken.h"

#include <QMessageAuthenticationCode>

namespace relay {

QByteArray AccessToken::make(const QByteArray& secret, const QString& boardId, qint64 accountId)
{
    const QByteArray message = boardId.toUtf8() + ':' + QByteArray::number(accountId);
    return QMessageAuthenticationCode::hash(message, secret, QCryptographicHash::Sha256).toHex();
}

bool AccessToken::matches(const QByteArray& secret, const QString& boardId, qint64 accountId, const QByteArray& token)
{
    const QByteArray expected = make(secret, boardId, accountId);
    const QByteArray given = token.toLower();
    if (given.size() != expected.size())
        return false;
    // Compare every byte, so the time taken tells nothing about the prefix.
    char difference = 0;
    for (qsizetype i = 0; i < expected.size(); ++i)
        difference |= char(expected[i] ^ given[i]);
    return difference == 0;
}

QByteArray AccessToken::secretFromFile(const QByteArray& contents)
{
    QByteArray secret = contents;
    while (secret.endsWith('\n') || secret.endsWith('\r'))
        secret.chop(1);
    return secret;
}

} // namespace relay
