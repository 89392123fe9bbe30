#include "relay/postgresboardstore.h"

#include "relay/relaylog.h"

#include <QCryptographicHash>
#include <QSqlDatabase>
#include <QSqlDriver>
#include <QSqlError>
#include <QSqlQuery>
#include <QUrlQuery>
#include <QVariant>

namespace relay {

namespace {

SqlBoardStore::Dialect postgresDialect()
{
    SqlBoardStore::Dialect dialect;
    dialect.migrations = {
        // 1: boards with their owner and sequence; the current item states;
        // the recent entries of every board.
        "CREATE TABLE boards (id TEXT PRIMARY KEY, owner BIGINT NOT NULL, sequence BIGINT NOT NULL DEFAULT 0);"
        "CREATE TABLE items (board TEXT NOT NULL, gid TEXT NOT NULL, author BIGINT NOT NULL,"
        " version BIGINT, versionuser BIGINT, sequence BIGINT NOT NULL, step INTEGER NOT NULL DEFAULT 0, envelope BYTEA NOT NULL,"
        " PRIMARY KEY (board, gid));"
        "CREATE INDEX items_by_sequence ON items (board, sequence, step);"
        "CREATE TABLE entries (board TEXT NOT NULL, sequence BIGINT NOT NULL, origin TEXT NOT NULL, frame BYTEA NOT NULL,"
        " PRIMARY KEY (board, sequence));",
        // 2: the device of a version, after the user; 0 for what came before.
        "ALTER TABLE items ADD COLUMN versiondevice BIGINT NOT NULL DEFAULT 0;",
    };
    // The commit notifies the board's channel with the last number it took;
    // PostgreSQL sends it when the transaction commits, and only then.
    dialect.lock = "UPDATE boards SET sequence = sequence + ? WHERE id = ? RETURNING sequence, pg_notify(?, 'c ' || sequence)";
    return dialect;
}

// Notification payloads: "c <sequence>" for a commit, "p <base64 frame>" for
// a pointer or a leave. PostgreSQL takes payloads below 8000 bytes.
constexpr int kMaxPayload = 7999;

} // namespace

PostgresBoardStore::PostgresBoardStore(const QUrl& url)
    : SqlBoardStore(QStringLiteral("QPSQL"), postgresDialect())
    , m_url(url)
{
}

PostgresBoardStore::~PostgresBoardStore()
{
    close();
}

bool PostgresBoardStore::open(QString* error)
{
    const bool opened = SqlBoardStore::open(error);
    if (database().isOpen())
        QSqlQuery(QStringLiteral("SELECT pg_advisory_unlock(727465)"), database());
    return opened;
}

bool PostgresBoardStore::isPostgresUrl(const QUrl& url)
{
    return url.scheme() == QLatin1String("postgresql") || url.scheme() == QLatin1String("postgres");
}

QString PostgresBoardStore::channelOf(const QString& boardId)
{
    return QStringLiteral("board_") + QString::fromLatin1(QCryptographicHash::hash(boardId.toUtf8(), QCryptographicHash::Sha1).toHex());
}

QString PostgresBoardStore::name() const
{
    return m_url.toDisplayString(QUrl::RemovePassword);
}

void PostgresBoardStore::configure(QSqlDatabase& db)
{
    const QUrlQuery query(m_url);
    const QString socketDir = query.queryItemValue(QStringLiteral("host"), QUrl::FullyDecoded);
    db.setHostName(socketDir.isEmpty() ? m_url.host() : socketDir);
    if (m_url.port() > 0)
        db.setPort(m_url.port());
    db.setUserName(m_url.userName(QUrl::FullyDecoded));
    db.setPassword(m_url.password(QUrl::FullyDecoded));
    db.setDatabaseName(m_url.path(QUrl::FullyDecoded).mid(1));
}

bool PostgresBoardStore::prepareConnection(QString* error)
{
    QSqlQuery query(database());
    // Nodes migrating one fresh database at once would collide: the first
    // holds this lock until open() is done, the others wait for it.
    if (!query.exec(QStringLiteral("SELECT pg_advisory_lock(727465)"))
        || !query.exec(QStringLiteral("CREATE TABLE IF NOT EXISTS schema_version (version INTEGER NOT NULL)"))) {
        *error = query.lastError().text();
        return false;
    }
    // Every commit notifies: prepared once, not per call.
    m_notify = std::make_unique<QSqlQuery>(database());
    m_notify->prepare(QStringLiteral("SELECT pg_notify(?, ?)"));
    QSqlDriver* driver = database().driver();
    QObject::connect(driver, &QSqlDriver::notification, driver,
                     [this](const QString& channel, QSqlDriver::NotificationSource source, const QVariant& payload) {
                         onNotification(channel, source == QSqlDriver::SelfSource, payload.toString());
                     });
    return true;
}

int PostgresBoardStore::schemaVersion(QString* error)
{
    return readNumber(QStringLiteral("SELECT coalesce(max(version), 0) FROM schema_version"), error);
}

bool PostgresBoardStore::setSchemaVersion(int version)
{
    QSqlQuery query(database());
    query.prepare(QStringLiteral("INSERT INTO schema_version (version) VALUES (?)"));
    query.addBindValue(version);
    return query.exec();
}

void PostgresBoardStore::bindLock(QSqlQuery& query, const QString& boardId)
{
    query.addBindValue(channelOf(boardId));
}

bool PostgresBoardStore::reopen(QString* error)
{
    // A broken connection counts as closed: beforeClose() is not called.
    m_notify.reset();
    if (!SqlBoardStore::reopen(error))
        return false;
    // A new connection listens on nothing yet.
    for (auto board = m_boardsByChannel.cbegin(); board != m_boardsByChannel.cend(); ++board) {
        if (!database().driver()->subscribeToNotification(board.key()))
            qCWarning(lcRelay).noquote() << "cannot listen for board" << board.value() << database().lastError().text();
    }
    return true;
}

bool PostgresBoardStore::notify(const QString& boardId, const QString& payload)
{
    m_notify->addBindValue(channelOf(boardId));
    m_notify->addBindValue(payload);
    const bool ok = m_notify->exec();
    if (!ok)
        qCWarning(lcRelay) << "storage error:" << m_notify->lastError().text() << "in" << m_notify->lastQuery();
    m_notify->finish();
    return ok;
}

void PostgresBoardStore::beforeClose()
{
    m_notify.reset();
}

void PostgresBoardStore::watch(const QString& boardId)
{
    const QString channel = channelOf(boardId);
    m_boardsByChannel.insert(channel, boardId);
    if (!database().driver()->subscribeToNotification(channel))
        qCWarning(lcRelay).noquote() << "cannot listen for board" << boardId << database().lastError().text();
}

void PostgresBoardStore::unwatch(const QString& boardId)
{
    const QString channel = channelOf(boardId);
    m_boardsByChannel.remove(channel);
    database().driver()->unsubscribeFromNotification(channel);
}

void PostgresBoardStore::publish(const QString& boardId, const QByteArray& frame)
{
    const QByteArray payload = "p " + frame.toBase64();
    // Pointers come again soon; a frame this large is no pointer anyway. The
    // leaves of a relay shutting down come after the store has closed.
    if (payload.size() > kMaxPayload || !m_notify || lost())
        return;
    notify(boardId, QString::fromLatin1(payload));
}

void PostgresBoardStore::onNotification(const QString& channel, bool fromHere, const QString& payload)
{
    // What this node sent it has delivered already.
    const QString boardId = m_boardsByChannel.value(channel);
    if (fromHere || !m_observer || boardId.isEmpty() || payload.size() < 2)
        return;
    if (payload.startsWith(QLatin1String("c ")))
        m_observer->committedElsewhere(boardId, payload.mid(2).toLongLong());
    else if (payload.startsWith(QLatin1String("p ")))
        m_observer->presenceElsewhere(boardId, QByteArray::fromBase64(payload.mid(2).toLatin1()));
}

} // namespace relay
