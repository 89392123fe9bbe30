#include "relay/sqliteboardstore.h"

#include "relay/relaylog.h"

#include <QSqlDatabase>
#include <QSqlError>
#include <QSqlQuery>
#include <QVariant>

#include <atomic>

namespace relay {

namespace {

QSqlQuery prepared(const QSqlDatabase& db, const QString& text)
{
    QSqlQuery query(db);
    query.prepare(text);
    return query;
}

bool run(QSqlQuery& query)
{
    if (query.exec())
        return true;
    qCWarning(lcRelay) << "storage error:" << query.lastError().text() << "in" << query.lastQuery();
    return false;
}

QVariant versionValue(const std::optional<BoardStore::Version>& version, bool user)
{
    if (!version)
        return QVariant(QMetaType::fromType<qint64>());
    return user ? version->user : version->version;
}

// Each migration takes the schema from the version before it to its own.
const char* const kMigrations[] = {
    // 1: boards with their owner and sequence; the current item states.
    "CREATE TABLE boards (id TEXT PRIMARY KEY, owner INTEGER NOT NULL, sequence INTEGER NOT NULL DEFAULT 0);"
    "CREATE TABLE items (board TEXT NOT NULL, gid TEXT NOT NULL, author INTEGER NOT NULL,"
    " version INTEGER, versionuser INTEGER, sequence INTEGER NOT NULL, envelope BLOB NOT NULL,"
    " PRIMARY KEY (board, gid));"
    "CREATE INDEX items_by_sequence ON items (board, sequence);",
};

} // namespace

SqliteBoardStore::SqliteBoardStore(const QString& path)
    : m_path(path)
{
    static std::atomic<int> counter { 0 };
    m_connectionName = QStringLiteral("whiteboard-relay-%1").arg(++counter);
}

SqliteBoardStore::~SqliteBoardStore()
{
    close();
}

bool SqliteBoardStore::open(QString* error)
{
    QSqlDatabase db = QSqlDatabase::addDatabase(QStringLiteral("QSQLITE"), m_connectionName);
    db.setDatabaseName(m_path);
    if (!db.open()) {
        *error = db.lastError().text();
        return false;
    }
    QSqlQuery query(db);
    // WAL: a committed transaction is in the log before commit returns, which
    // is all that survives a killed process needs; NORMAL skips the fsync of
    // every commit (the log is synced at checkpoints).
    if (m_path != QLatin1String(":memory:") && (!query.exec(QStringLiteral("PRAGMA journal_mode=WAL")) || !query.next() || query.value(0).toString() != QLatin1String("wal"))) {
        *error = QStringLiteral("cannot switch %1 to WAL mode").arg(m_path);
        return false;
    }
    query.exec(QStringLiteral("PRAGMA synchronous=NORMAL"));
    query.exec(QStringLiteral("PRAGMA busy_timeout=5000"));
    if (!migrate(error))
        return false;
    m_nextSequence = std::make_unique<QSqlQuery>(prepared(db, QStringLiteral("UPDATE boards SET sequence = sequence + 1 WHERE id = ? RETURNING sequence")));
    m_put = std::make_unique<QSqlQuery>(prepared(db, QStringLiteral("INSERT OR REPLACE INTO items (board, gid, author, version, versionuser, sequence, envelope)"
                                                                    " VALUES (?, ?, ?, ?, ?, ?, ?)")));
    m_remove = std::make_unique<QSqlQuery>(prepared(db, QStringLiteral("DELETE FROM items WHERE board = ? AND gid = ?")));
    return true;
}

bool SqliteBoardStore::migrate(QString* error)
{
    QSqlDatabase db = QSqlDatabase::database(m_connectionName);
    QSqlQuery query(db);
    if (!query.exec(QStringLiteral("PRAGMA user_version")) || !query.next()) {
        *error = query.lastError().text();
        return false;
    }
    const int current = query.value(0).toInt();
    if (current > kSchemaVersion) {
        *error = QStringLiteral("%1 has schema %2, newer than this relay's %3").arg(m_path).arg(current).arg(kSchemaVersion);
        return false;
    }
    for (int version = current + 1; version <= kSchemaVersion; ++version) {
        db.transaction();
        const QStringList statements = QString::fromLatin1(kMigrations[version - 1]).split(QLatin1Char(';'), Qt::SkipEmptyParts);
        for (const QString& statement : statements) {
            if (!query.exec(statement)) {
                *error = query.lastError().text();
                db.rollback();
                return false;
            }
        }
        query.exec(QStringLiteral("PRAGMA user_version=%1").arg(version));
        if (!db.commit()) {
            *error = db.lastError().text();
            return false;
        }
        qCInfo(lcRelay) << "storage schema migrated to version" << version;
    }
    return true;
}

void SqliteBoardStore::close()
{
    if (!QSqlDatabase::contains(m_connectionName))
        return;
    m_nextSequence.reset();
    m_put.reset();
    m_remove.reset();
    {
        QSqlDatabase db = QSqlDatabase::database(m_connectionName, false);
        if (db.isOpen()) {
            // Fold the log into the main file, so the file alone is the boards.
            QSqlQuery query(db);
            query.exec(QStringLiteral("PRAGMA wal_checkpoint(TRUNCATE)"));
            db.close();
        }
    }
    QSqlDatabase::removeDatabase(m_connectionName);
}

BoardStore::Board SqliteBoardStore::board(const QString& boardId)
{
    Board result;
    QSqlQuery query = prepared(QSqlDatabase::database(m_connectionName), QStringLiteral("SELECT owner, sequence FROM boards WHERE id = ?"));
    query.addBindValue(boardId);
    if (run(query) && query.next()) {
        result.exists = true;
        result.owner = query.value(0).toLongLong();
        result.sequence = query.value(1).toLongLong();
    }
    return result;
}

bool SqliteBoardStore::createBoard(const QString& boardId, qint64 owner)
{
    QSqlQuery query = prepared(QSqlDatabase::database(m_connectionName), QStringLiteral("INSERT OR IGNORE INTO boards (id, owner) VALUES (?, ?)"));
    query.addBindValue(boardId);
    query.addBindValue(owner);
    return run(query);
}

QList<BoardStore::Item> SqliteBoardStore::items(const QString& boardId)
{
    QList<Item> result;
    QSqlQuery query = prepared(QSqlDatabase::database(m_connectionName),
                               QStringLiteral("SELECT gid, author, version, versionuser, envelope FROM items WHERE board = ? ORDER BY sequence, rowid"));
    query.setForwardOnly(true);
    query.addBindValue(boardId);
    if (!run(query))
        return result;
    while (query.next()) {
        Item item;
        item.gid = query.value(0).toString();
        item.author = query.value(1).toLongLong();
        if (!query.value(2).isNull())
            item.version = Version { query.value(2).toLongLong(), query.value(3).toLongLong() };
        item.envelope = query.value(4).toByteArray();
        result.append(item);
    }
    return result;
}

std::optional<BoardStore::Item> SqliteBoardStore::item(const QString& boardId, const QString& gid)
{
    QSqlQuery query = prepared(QSqlDatabase::database(m_connectionName),
                               QStringLiteral("SELECT author, version, versionuser, envelope FROM items WHERE board = ? AND gid = ?"));
    query.addBindValue(boardId);
    query.addBindValue(gid);
    if (!run(query) || !query.next())
        return std::nullopt;
    Item item;
    item.gid = gid;
    item.author = query.value(0).toLongLong();
    if (!query.value(1).isNull())
        item.version = Version { query.value(1).toLongLong(), query.value(2).toLongLong() };
    item.envelope = query.value(3).toByteArray();
    return item;
}

qint64 SqliteBoardStore::commit(const QString& boardId, const QList<Change>& changes)
{
    QSqlDatabase db = QSqlDatabase::database(m_connectionName);
    if (!db.transaction()) {
        qCWarning(lcRelay) << "storage error:" << db.lastError().text();
        return -1;
    }
    QSqlQuery& next = *m_nextSequence;
    next.addBindValue(boardId);
    qint64 sequence = -1;
    bool ok = run(next) && next.next();
    if (ok) {
        sequence = next.value(0).toLongLong();
        next.finish();
        for (const Change& change : changes) {
            if (!(ok = apply(boardId, sequence, change)))
                break;
        }
    }
    if (ok && db.commit())
        return sequence;
    qCWarning(lcRelay) << "storage commit failed for board" << boardId << db.lastError().text();
    db.rollback();
    return -1;
}

bool SqliteBoardStore::apply(const QString& boardId, qint64 sequence, const Change& change)
{
    QSqlQuery query(QSqlDatabase::database(m_connectionName));
    switch (change.kind) {
    case Change::Put:
        m_put->addBindValue(boardId);
        m_put->addBindValue(change.item.gid);
        m_put->addBindValue(change.item.author);
        m_put->addBindValue(versionValue(change.item.version, false));
        m_put->addBindValue(versionValue(change.item.version, true));
        m_put->addBindValue(sequence);
        m_put->addBindValue(change.item.envelope);
        return run(*m_put);
    case Change::Remove:
        m_remove->addBindValue(boardId);
        m_remove->addBindValue(change.item.gid);
        return run(*m_remove);
    case Change::ClearAll:
    case Change::ClearByAuthor: {
        QString text = QStringLiteral("DELETE FROM items WHERE board = ?");
        if (change.kind == Change::ClearByAuthor)
            text += QStringLiteral(" AND author = ?");
        if (change.before)
            text += QStringLiteral(" AND (version IS NULL OR version < ? OR (version = ? AND versionuser < ?))");
        query.prepare(text);
        query.addBindValue(boardId);
        if (change.kind == Change::ClearByAuthor)
            query.addBindValue(change.author);
        if (change.before) {
            query.addBindValue(change.before->version);
            query.addBindValue(change.before->version);
            query.addBindValue(change.before->user);
        }
        break;
    }
    }
    return run(query);
}

} // namespace relay
