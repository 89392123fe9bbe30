#include "relay/sqlboardstore.h"

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

BoardStore::Item itemFrom(const QSqlQuery& query, int first)
{
    BoardStore::Item item;
    item.author = query.value(first).toLongLong();
    if (!query.value(first + 1).isNull())
        item.version = BoardStore::Version { query.value(first + 1).toLongLong(), query.value(first + 2).toLongLong() };
    item.envelope = query.value(first + 3).toByteArray();
    return item;
}

} // namespace

SqlBoardStore::SqlBoardStore(const QString& driver, const Dialect& dialect)
    : m_driver(driver)
    , m_dialect(dialect)
{
    static std::atomic<int> counter { 0 };
    m_connectionName = QStringLiteral("whiteboard-relay-%1").arg(++counter);
}

SqlBoardStore::~SqlBoardStore()
{
    // A subclass closes in its own destructor, while its hooks still exist.
}

QSqlDatabase SqlBoardStore::database() const
{
    return QSqlDatabase::database(m_connectionName, false);
}

bool SqlBoardStore::open(QString* error)
{
    QSqlDatabase db = QSqlDatabase::addDatabase(m_driver, m_connectionName);
    if (!db.isValid()) {
        *error = QStringLiteral("the Qt SQL driver %1 is not installed").arg(m_driver);
        return false;
    }
    configure(db);
    if (!db.open()) {
        *error = db.lastError().text();
        return false;
    }
    if (!prepareConnection(error) || !migrate(error))
        return false;
    // Taking the next number locks the board's row until the transaction
    // ends (a rollback gives the number back): one round trip for both.
    m_lock = std::make_unique<QSqlQuery>(prepared(db, QStringLiteral("UPDATE boards SET sequence = sequence + 1 WHERE id = ? RETURNING sequence")));
    m_put = std::make_unique<QSqlQuery>(prepared(db, QStringLiteral("INSERT INTO items (board, gid, author, version, versionuser, sequence, step, envelope)"
                                                                    " VALUES (?, ?, ?, ?, ?, ?, ?, ?) ON CONFLICT (board, gid) DO UPDATE SET"
                                                                    " author = excluded.author, version = excluded.version, versionuser = excluded.versionuser,"
                                                                    " sequence = excluded.sequence, step = excluded.step, envelope = excluded.envelope")));
    m_remove = std::make_unique<QSqlQuery>(prepared(db, QStringLiteral("DELETE FROM items WHERE board = ? AND gid = ?")));
    m_entry = std::make_unique<QSqlQuery>(prepared(db, QStringLiteral("INSERT INTO entries (board, sequence, origin, frame) VALUES (?, ?, ?, ?)")));
    m_entries = std::make_unique<QSqlQuery>(
        prepared(db, QStringLiteral("SELECT sequence, origin, frame FROM entries WHERE board = ? AND sequence > ? ORDER BY sequence")));
    m_entries->setForwardOnly(true);
    return true;
}

int SqlBoardStore::readNumber(const QString& statement, QString* error)
{
    QSqlQuery query(database());
    if (!query.exec(statement) || !query.next()) {
        *error = query.lastError().text();
        return -1;
    }
    return query.value(0).toInt();
}

bool SqlBoardStore::migrate(QString* error)
{
    QSqlDatabase db = database();
    const int current = schemaVersion(error);
    if (current < 0)
        return false;
    const int latest = int(m_dialect.migrations.size());
    if (current > latest) {
        *error = QStringLiteral("%1 has schema %2, newer than this relay's %3").arg(name()).arg(current).arg(latest);
        return false;
    }
    QSqlQuery query(db);
    for (int version = current + 1; version <= latest; ++version) {
        db.transaction();
        const QStringList statements = QString::fromLatin1(m_dialect.migrations[version - 1]).split(QLatin1Char(';'), Qt::SkipEmptyParts);
        for (const QString& statement : statements) {
            if (!query.exec(statement)) {
                *error = query.lastError().text();
                db.rollback();
                return false;
            }
        }
        if (!setSchemaVersion(version) || !db.commit()) {
            *error = db.lastError().text();
            db.rollback();
            return false;
        }
        qCInfo(lcRelay) << "storage schema migrated to version" << version;
    }
    return true;
}

void SqlBoardStore::close()
{
    if (!QSqlDatabase::contains(m_connectionName))
        return;
    m_lock.reset();
    m_put.reset();
    m_remove.reset();
    m_entry.reset();
    m_entries.reset();
    {
        QSqlDatabase db = database();
        if (db.isOpen()) {
            beforeClose();
            db.close();
        }
    }
    QSqlDatabase::removeDatabase(m_connectionName);
}

BoardStore::Board SqlBoardStore::board(const QString& boardId)
{
    Board result;
    QSqlQuery query = prepared(database(), QStringLiteral("SELECT owner, sequence FROM boards WHERE id = ?"));
    query.addBindValue(boardId);
    if (run(query) && query.next()) {
        result.exists = true;
        result.owner = query.value(0).toLongLong();
        result.sequence = query.value(1).toLongLong();
    }
    return result;
}

bool SqlBoardStore::createBoard(const QString& boardId, qint64 owner)
{
    QSqlQuery query = prepared(database(), QStringLiteral("INSERT INTO boards (id, owner) VALUES (?, ?) ON CONFLICT (id) DO NOTHING"));
    query.addBindValue(boardId);
    query.addBindValue(owner);
    return run(query);
}

QList<BoardStore::Item> SqlBoardStore::items(const QString& boardId)
{
    QList<Item> result;
    QSqlQuery query = prepared(database(), QStringLiteral("SELECT gid, author, version, versionuser, envelope FROM items WHERE board = ? ORDER BY sequence, step"));
    query.setForwardOnly(true);
    query.addBindValue(boardId);
    if (!run(query))
        return result;
    while (query.next()) {
        Item item = itemFrom(query, 1);
        item.gid = query.value(0).toString();
        result.append(item);
    }
    return result;
}

std::optional<BoardStore::Item> SqlBoardStore::item(const QString& boardId, const QString& gid)
{
    QSqlQuery query = prepared(database(), QStringLiteral("SELECT author, version, versionuser, envelope FROM items WHERE board = ? AND gid = ?"));
    query.addBindValue(boardId);
    query.addBindValue(gid);
    if (!run(query) || !query.next())
        return std::nullopt;
    Item item = itemFrom(query, 0);
    item.gid = gid;
    return item;
}

qint64 SqlBoardStore::lock(const QString& boardId)
{
    QSqlDatabase db = database();
    if (!db.transaction()) {
        qCWarning(lcRelay) << "storage error:" << db.lastError().text();
        return -1;
    }
    m_lock->addBindValue(boardId);
    if (!run(*m_lock) || !m_lock->next()) {
        db.rollback();
        return -1;
    }
    m_next = m_lock->value(0).toLongLong();
    m_lock->finish();
    return m_next - 1;
}

void SqlBoardStore::rollback()
{
    database().rollback();
}

qint64 SqlBoardStore::commit(const QString& boardId, const QList<Change>& changes, const Entry& entry)
{
    QSqlDatabase db = database();
    const qint64 sequence = m_next;
    bool ok = true;
    for (int step = 0; ok && step < changes.size(); ++step)
        ok = apply(boardId, sequence, step, changes[step]);
    if (ok) {
        m_entry->addBindValue(boardId);
        m_entry->addBindValue(sequence);
        m_entry->addBindValue(entry.origin);
        m_entry->addBindValue(entry.frame);
        ok = run(*m_entry);
    }
    if (ok && sequence % 1000 == 0) {
        QSqlQuery prune = prepared(db, QStringLiteral("DELETE FROM entries WHERE board = ? AND sequence <= ?"));
        prune.addBindValue(boardId);
        prune.addBindValue(sequence - kEntriesKept);
        ok = run(prune);
    }
    ok = ok && beforeCommit(boardId, sequence);
    if (ok && db.commit())
        return sequence;
    qCWarning(lcRelay) << "storage commit failed for board" << boardId << db.lastError().text();
    db.rollback();
    return -1;
}

QList<BoardStore::Entry> SqlBoardStore::entries(const QString& boardId, qint64 after)
{
    QList<Entry> result;
    m_entries->addBindValue(boardId);
    m_entries->addBindValue(after);
    if (!run(*m_entries))
        return result;
    while (m_entries->next())
        result.append(Entry { m_entries->value(0).toLongLong(), m_entries->value(1).toString(), m_entries->value(2).toByteArray() });
    m_entries->finish();
    return result;
}

bool SqlBoardStore::apply(const QString& boardId, qint64 sequence, int step, const Change& change)
{
    QSqlQuery query(database());
    switch (change.kind) {
    case Change::Put:
        m_put->addBindValue(boardId);
        m_put->addBindValue(change.item.gid);
        m_put->addBindValue(change.item.author);
        m_put->addBindValue(versionValue(change.item.version, false));
        m_put->addBindValue(versionValue(change.item.version, true));
        m_put->addBindValue(sequence);
        m_put->addBindValue(step);
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
