#include "relay/sqlboardstore.h"

#include "relay/relaylog.h"

#include <QSqlDatabase>
#include <QSqlError>
#include <QSqlQuery>
#include <QVariant>

#include <algorithm>
#include <atomic>

namespace relay {

namespace {

// Rows per multi-row statement: few statement texts to prepare, few round
// trips per batch.
constexpr int kRowsPerStatement = 64;

bool run(QSqlQuery& query)
{
    if (query.exec())
        return true;
    qCWarning(lcRelay) << "storage error:" << query.lastError().text() << "in" << query.lastQuery();
    return false;
}

// One column of the version: its clock, user or device; null without a version.
QVariant versionValue(const std::optional<BoardStore::Version>& version, qint64 BoardStore::Version::*column)
{
    if (!version)
        return QVariant(QMetaType::fromType<qint64>());
    return (*version).*column;
}

BoardStore::Item itemFrom(const QSqlQuery& query, int first)
{
    BoardStore::Item item;
    item.author = query.value(first).toLongLong();
    if (!query.value(first + 1).isNull())
        item.version = BoardStore::Version { query.value(first + 1).toLongLong(), query.value(first + 2).toLongLong(),
                                             query.value(first + 3).toLongLong() };
    item.envelope = query.value(first + 4).toByteArray();
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
    m_lost = false;
    return true;
}

QSqlQuery& SqlBoardStore::statement(const QString& text)
{
    std::shared_ptr<QSqlQuery>& query = m_statements[text];
    if (!query) {
        query = std::make_shared<QSqlQuery>(database());
        query->setForwardOnly(true);
        query->prepare(text);
    }
    return *query;
}

QSqlQuery& SqlBoardStore::rowsStatement(const QString& head, int rows, int columns, const QString& tail)
{
    QString row = QStringLiteral("(?") + QStringLiteral(", ?").repeated(columns - 1) + QLatin1Char(')');
    QStringList all;
    for (int i = 0; i < rows; ++i)
        all << row;
    return statement(head + all.join(QLatin1String(", ")) + tail);
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
    m_statements.clear();
    {
        QSqlDatabase db = database();
        if (db.isOpen()) {
            beforeClose();
            db.close();
        }
    }
    QSqlDatabase::removeDatabase(m_connectionName);
}

bool SqlBoardStore::probe()
{
    QSqlQuery query(database());
    m_lost = !database().isOpen() || !query.exec(QStringLiteral("SELECT 1")) || !query.next();
    return !m_lost;
}

bool SqlBoardStore::reopen(QString* error)
{
    close();
    m_lost = true;
    return open(error);
}

BoardStore::Board SqlBoardStore::board(const QString& boardId)
{
    Board result;
    QSqlQuery& query = statement(QStringLiteral("SELECT owner, sequence FROM boards WHERE id = ?"));
    query.addBindValue(boardId);
    if (run(query) && query.next()) {
        result.exists = true;
        result.owner = query.value(0).toLongLong();
        result.sequence = query.value(1).toLongLong();
    }
    query.finish();
    return result;
}

bool SqlBoardStore::createBoard(const QString& boardId, qint64 owner)
{
    QSqlQuery& query = statement(QStringLiteral("INSERT INTO boards (id, owner) VALUES (?, ?) ON CONFLICT (id) DO NOTHING"));
    query.addBindValue(boardId);
    query.addBindValue(owner);
    return run(query);
}

bool SqlBoardStore::items(const QString& boardId, QList<Item>* items)
{
    items->clear();
    QSqlQuery& query = statement(QStringLiteral("SELECT gid, author, version, versionuser, versiondevice, envelope FROM items WHERE board = ? ORDER BY sequence, step"));
    query.addBindValue(boardId);
    if (!run(query))
        return false;
    while (query.next()) {
        Item item = itemFrom(query, 1);
        item.gid = query.value(0).toString();
        items->append(item);
    }
    query.finish();
    return true;
}

std::optional<BoardStore::Item> SqlBoardStore::item(const QString& boardId, const QString& gid)
{
    QSqlQuery& query = statement(QStringLiteral("SELECT author, version, versionuser, versiondevice, envelope FROM items WHERE board = ? AND gid = ?"));
    query.addBindValue(boardId);
    query.addBindValue(gid);
    std::optional<Item> result;
    if (run(query) && query.next()) {
        result = itemFrom(query, 0);
        result->gid = gid;
    }
    query.finish();
    return result;
}

qint64 SqlBoardStore::lock(const QString& boardId, int count)
{
    QSqlDatabase db = database();
    if (!db.transaction()) {
        qCWarning(lcRelay) << "storage error:" << db.lastError().text();
        return -1;
    }
    // Reserving the numbers locks the board's row until the transaction
    // ends: one round trip for both.
    QSqlQuery& query = statement(QString::fromLatin1(m_dialect.lock));
    query.addBindValue(count);
    query.addBindValue(boardId);
    bindLock(query, boardId);
    if (!run(query) || !query.next()) {
        query.finish();
        db.rollback();
        return -1;
    }
    const qint64 reserved = query.value(0).toLongLong();
    query.finish();
    return reserved - count;
}

void SqlBoardStore::rollback()
{
    database().rollback();
}

// One item row of a batch, with the place of the message that put it.
struct SqlBoardStore::Row
{
    const Item* item;
    qint64 sequence;
    int step;
};

bool SqlBoardStore::write(const QString& boardId, const QList<Message>& messages)
{
    // Puts and removals since the last clear, folded per gid, as one
    // statement may touch a row only once: the removals go first, so a put
    // after a removal of the same gid stands.
    QList<Row> puts;
    QHash<QString, qsizetype> putAt;
    QStringList removals;
    auto flush = [&] {
        QList<Row> rows;
        for (const Row& row : std::as_const(puts)) {
            if (row.item)
                rows.append(row);
        }
        const bool ok = removeRows(boardId, removals) && putRows(boardId, rows);
        puts.clear();
        putAt.clear();
        removals.clear();
        return ok;
    };
    for (const Message& message : messages) {
        for (int step = 0; step < message.changes.size(); ++step) {
            const Change& change = message.changes[step];
            switch (change.kind) {
            case Change::Put: {
                const auto at = putAt.constFind(change.item.gid);
                if (at != putAt.cend())
                    puts[*at].item = nullptr;
                putAt.insert(change.item.gid, puts.size());
                puts.append(Row { &change.item, message.entry.sequence, step });
                break;
            }
            case Change::Remove: {
                const auto at = putAt.constFind(change.item.gid);
                if (at != putAt.cend()) {
                    puts[*at].item = nullptr;
                    putAt.erase(at);
                }
                removals.append(change.item.gid);
                break;
            }
            case Change::ClearAll:
            case Change::ClearByAuthor:
                if (!flush() || !clear(boardId, change))
                    return false;
                break;
            }
        }
    }
    if (!flush())
        return false;

    for (qsizetype first = 0; first < messages.size(); first += kRowsPerStatement) {
        const int rows = int(std::min<qsizetype>(kRowsPerStatement, messages.size() - first));
        QSqlQuery& query = rowsStatement(QStringLiteral("INSERT INTO entries (board, sequence, origin, frame) VALUES "), rows, 4);
        for (int i = 0; i < rows; ++i) {
            const Entry& entry = messages[first + i].entry;
            query.addBindValue(boardId);
            query.addBindValue(entry.sequence);
            query.addBindValue(entry.origin);
            // Not NULL: QtSql binds a null array as NULL.
            query.addBindValue(entry.frame.isNull() ? QByteArray("") : entry.frame);
        }
        if (!run(query))
            return false;
    }
    if (messages.isEmpty())
        return true;
    // Now and then the entries nobody can need any more go: every thousand
    // sequence numbers, or once a quarter of the bytes kept came in.
    qint64& unpruned = m_unprunedBytes[boardId];
    for (const Message& message : messages)
        unpruned += message.entry.frame.size();
    const qint64 last = messages.constLast().entry.sequence;
    if (last / 1000 == (messages.constFirst().entry.sequence - 1) / 1000 && unpruned < kEntriesBytesKept / 4)
        return true;
    unpruned = 0;
    QSqlQuery& prune = statement(QStringLiteral("DELETE FROM entries WHERE board = ? AND sequence <= ?"));
    prune.addBindValue(boardId);
    prune.addBindValue(last - kEntriesKept);
    if (!run(prune))
        return false;
    QSqlQuery& bytes = statement(QStringLiteral(
        "DELETE FROM entries WHERE board = ? AND sequence <= (SELECT COALESCE(MAX(sequence), 0) FROM "
        "(SELECT sequence, SUM(length(frame)) OVER (ORDER BY sequence DESC) AS newer FROM entries WHERE board = ?) AS kept WHERE newer > ?)"));
    bytes.addBindValue(boardId);
    bytes.addBindValue(boardId);
    bytes.addBindValue(kEntriesBytesKept);
    return run(bytes);
}

bool SqlBoardStore::putRows(const QString& boardId, const QList<Row>& rows)
{
    for (qsizetype first = 0; first < rows.size(); first += kRowsPerStatement) {
        const int count = int(std::min<qsizetype>(kRowsPerStatement, rows.size() - first));
        QSqlQuery& query = rowsStatement(QStringLiteral("INSERT INTO items (board, gid, author, version, versionuser, versiondevice, sequence, step, envelope) VALUES "),
                                         count, 9,
                                         QStringLiteral(" ON CONFLICT (board, gid) DO UPDATE SET"
                                                        " author = excluded.author, version = excluded.version, versionuser = excluded.versionuser,"
                                                        " versiondevice = excluded.versiondevice,"
                                                        " sequence = excluded.sequence, step = excluded.step, envelope = excluded.envelope"));
        for (int i = 0; i < count; ++i) {
            const Row& row = rows[first + i];
            query.addBindValue(boardId);
            query.addBindValue(row.item->gid);
            query.addBindValue(row.item->author);
            query.addBindValue(versionValue(row.item->version, &Version::clock));
            query.addBindValue(versionValue(row.item->version, &Version::user));
            // Not null: a row without a version has the device 0.
            query.addBindValue(row.item->version ? row.item->version->device : 0);
            query.addBindValue(row.sequence);
            query.addBindValue(row.step);
            query.addBindValue(row.item->envelope);
        }
        if (!run(query))
            return false;
    }
    return true;
}

bool SqlBoardStore::removeRows(const QString& boardId, const QStringList& gids)
{
    for (qsizetype first = 0; first < gids.size(); first += kRowsPerStatement) {
        const int count = int(std::min<qsizetype>(kRowsPerStatement, gids.size() - first));
        QSqlQuery& query = statement(QStringLiteral("DELETE FROM items WHERE board = ? AND gid IN (?") + QStringLiteral(", ?").repeated(count - 1)
                                     + QLatin1Char(')'));
        query.addBindValue(boardId);
        for (int i = 0; i < count; ++i)
            query.addBindValue(gids[first + i]);
        if (!run(query))
            return false;
    }
    return true;
}

bool SqlBoardStore::clear(const QString& boardId, const Change& change)
{
    QString text = QStringLiteral("DELETE FROM items WHERE board = ?");
    if (change.kind == Change::ClearByAuthor)
        text += QStringLiteral(" AND author = ?");
    if (change.before)
        text += QStringLiteral(" AND (version IS NULL OR (version, versionuser, versiondevice) < (?, ?, ?))");
    QSqlQuery& query = statement(text);
    query.addBindValue(boardId);
    if (change.kind == Change::ClearByAuthor)
        query.addBindValue(change.author);
    if (change.before) {
        query.addBindValue(change.before->clock);
        query.addBindValue(change.before->user);
        query.addBindValue(change.before->device);
    }
    return run(query);
}

bool SqlBoardStore::commit()
{
    QSqlDatabase db = database();
    if (db.commit())
        return true;
    qCWarning(lcRelay) << "storage commit failed:" << db.lastError().text();
    db.rollback();
    return false;
}

bool SqlBoardStore::entries(const QString& boardId, qint64 after, QList<Entry>* entries)
{
    entries->clear();
    QSqlQuery& query = statement(QStringLiteral("SELECT sequence, origin, frame FROM entries WHERE board = ? AND sequence > ? ORDER BY sequence"));
    query.addBindValue(boardId);
    query.addBindValue(after);
    if (!run(query))
        return false;
    while (query.next())
        entries->append(Entry { query.value(0).toLongLong(), query.value(1).toString(), query.value(2).toByteArray() });
    query.finish();
    return true;
}

} // namespace relay
