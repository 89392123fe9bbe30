#include "relay/boardadmin.h"

#include "relay/sqlboardstore.h"

#include "proto/whiteboard.pb.h"

#include <QFileInfo>
#include <QSqlDatabase>
#include <QSqlDriver>
#include <QSqlError>
#include <QSqlQuery>
#include <QVariant>

#include <algorithm>

namespace relay {

namespace {

qint64 newestTimestamp(const im::whiteboard::TransferData& frame)
{
    qint64 newest = 0;
    for (const im::whiteboard::SingleWhiteboardData& envelope : frame.multi().whiteboarddatalist())
        newest = std::max<qint64>(newest, envelope.timestamp());
    return newest;
}

} // namespace

BoardAdmin::BoardAdmin(SqlBoardStore* store)
    : m_store(store)
{
}

bool BoardAdmin::list(QList<BoardInfo>* boards, QString* error)
{
    QSqlQuery query(m_store->database());
    if (!query.exec(QStringLiteral("SELECT b.id, b.owner, count(i.gid), coalesce(sum(length(i.envelope)), 0)"
                                   " FROM boards b LEFT JOIN items i ON i.board = b.id GROUP BY b.id, b.owner ORDER BY b.id"))) {
        *error = query.lastError().text();
        return false;
    }
    while (query.next())
        boards->append({ query.value(0).toString(), query.value(1).toLongLong(), query.value(2).toLongLong(), query.value(3).toLongLong(), {} });
    for (BoardInfo& board : *boards)
        board.lastActivity = lastActivity(board.id);
    return true;
}

QDateTime BoardAdmin::lastActivity(const QString& boardId)
{
    QSqlQuery query(m_store->database());
    query.prepare(QStringLiteral("SELECT frame FROM entries WHERE board = ? ORDER BY sequence DESC LIMIT 1"));
    query.addBindValue(boardId);
    qint64 newest = 0;
    if (query.exec() && query.next()) {
        const QByteArray frame = query.value(0).toByteArray();
        im::whiteboard::TransferData message;
        if (message.ParseFromArray(frame.constData(), int(frame.size())))
            newest = newestTimestamp(message);
    }
    if (newest == 0) {
        query.prepare(QStringLiteral("SELECT envelope FROM items WHERE board = ? ORDER BY sequence DESC, step DESC LIMIT 1"));
        query.addBindValue(boardId);
        im::whiteboard::SingleWhiteboardData envelope;
        if (query.exec() && query.next()) {
            const QByteArray bytes = query.value(0).toByteArray();
            if (envelope.ParseFromArray(bytes.constData(), int(bytes.size())))
                newest = envelope.timestamp();
        }
    }
    return newest > 0 ? QDateTime::fromMSecsSinceEpoch(newest, Qt::UTC) : QDateTime();
}

bool BoardAdmin::remove(const QString& boardId, QString* error)
{
    QSqlDatabase db = m_store->database();
    if (!db.transaction()) {
        *error = db.lastError().text();
        return false;
    }
    QSqlQuery query(db);
    int removed = 0;
    for (const QString& statement : { QStringLiteral("DELETE FROM entries WHERE board = ?"), QStringLiteral("DELETE FROM items WHERE board = ?"),
                                      QStringLiteral("DELETE FROM boards WHERE id = ?") }) {
        query.prepare(statement);
        query.addBindValue(boardId);
        if (!query.exec()) {
            *error = query.lastError().text();
            db.rollback();
            return false;
        }
        removed = query.numRowsAffected();
    }
    if (removed <= 0) {
        error->clear();
        db.rollback();
        return false;
    }
    if (!db.commit()) {
        *error = db.lastError().text();
        return false;
    }
    return true;
}

bool BoardAdmin::backup(const QString& file, QString* error)
{
    if (m_store->database().driverName() != QLatin1String("QSQLITE")) {
        *error = QStringLiteral("only an SQLite store is backed up here; for PostgreSQL use pg_dump");
        return false;
    }
    if (QFileInfo::exists(file)) {
        *error = QStringLiteral("%1 exists already").arg(file);
        return false;
    }
    QSqlQuery query(m_store->database());
    query.prepare(QStringLiteral("VACUUM INTO ?"));
    query.addBindValue(file);
    if (!query.exec()) {
        *error = query.lastError().text();
        return false;
    }
    return true;
}

} // namespace relay
