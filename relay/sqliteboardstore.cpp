#include "relay/sqliteboardstore.h"

#include <QSqlDatabase>
#include <QSqlError>
#include <QSqlQuery>
#include <QVariant>

namespace relay {

namespace {

SqlBoardStore::Dialect sqliteDialect()
{
    SqlBoardStore::Dialect dialect;
    dialect.migrations = {
        // 1: boards with their owner and sequence; the current item states.
        "CREATE TABLE boards (id TEXT PRIMARY KEY, owner INTEGER NOT NULL, sequence INTEGER NOT NULL DEFAULT 0);"
        "CREATE TABLE items (board TEXT NOT NULL, gid TEXT NOT NULL, author INTEGER NOT NULL,"
        " version INTEGER, versionuser INTEGER, sequence INTEGER NOT NULL, envelope BLOB NOT NULL,"
        " PRIMARY KEY (board, gid));"
        "CREATE INDEX items_by_sequence ON items (board, sequence);",
        // 2: the place of an item within its message; the recent entries.
        "ALTER TABLE items ADD COLUMN step INTEGER NOT NULL DEFAULT 0;"
        "CREATE TABLE entries (board TEXT NOT NULL, sequence INTEGER NOT NULL, origin TEXT NOT NULL, frame BLOB NOT NULL,"
        " PRIMARY KEY (board, sequence)) WITHOUT ROWID;",
        // 3: the device of a version, after the user; 0 for what came before.
        "ALTER TABLE items ADD COLUMN versiondevice INTEGER NOT NULL DEFAULT 0;",
    };
    return dialect;
}

} // namespace

SqliteBoardStore::SqliteBoardStore(const QString& path)
    : SqlBoardStore(QStringLiteral("QSQLITE"), sqliteDialect())
    , m_path(path)
{
}

SqliteBoardStore::~SqliteBoardStore()
{
    close();
}

void SqliteBoardStore::configure(QSqlDatabase& db)
{
    db.setDatabaseName(m_path);
}

bool SqliteBoardStore::prepareConnection(QString* error)
{
    QSqlQuery query(database());
    // WAL: a committed transaction is in the log before commit returns, which
    // is all that survives a killed process needs; NORMAL skips the fsync of
    // every commit (the log is synced at checkpoints).
    if (m_path != QLatin1String(":memory:") && (!query.exec(QStringLiteral("PRAGMA journal_mode=WAL")) || !query.next() || query.value(0).toString() != QLatin1String("wal"))) {
        *error = QStringLiteral("cannot switch %1 to WAL mode").arg(m_path);
        return false;
    }
    query.exec(QStringLiteral("PRAGMA synchronous=NORMAL"));
    query.exec(QStringLiteral("PRAGMA busy_timeout=5000"));
    return true;
}

int SqliteBoardStore::schemaVersion(QString* error)
{
    return readNumber(QStringLiteral("PRAGMA user_version"), error);
}

bool SqliteBoardStore::setSchemaVersion(int version)
{
    QSqlQuery query(database());
    return query.exec(QStringLiteral("PRAGMA user_version=%1").arg(version));
}

void SqliteBoardStore::beforeClose()
{
    // Fold the log into the main file, so the file alone is the boards.
    QSqlQuery query(database());
    query.exec(QStringLiteral("PRAGMA wal_checkpoint(TRUNCATE)"));
}

} // namespace relay
