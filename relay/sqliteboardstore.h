#pragma once

#include "relay/boardstore.h"

#include <QString>

#include <memory>

class QSqlQuery;

namespace relay {

// The embedded store: one SQLite file through QtSql, in WAL mode. A commit
// returns once SQLite has the transaction in its log, so a relay killed right
// after a delivery finds the change again when it restarts.
class SqliteBoardStore : public BoardStore
{
public:
    // ":memory:" keeps the boards in memory only (the demo's relay).
    explicit SqliteBoardStore(const QString& path);
    ~SqliteBoardStore() override;

    bool open(QString* error) override;
    void close() override;

    Board board(const QString& boardId) override;
    bool createBoard(const QString& boardId, qint64 owner) override;
    QList<Item> items(const QString& boardId) override;
    std::optional<Item> item(const QString& boardId, const QString& gid) override;
    qint64 commit(const QString& boardId, const QList<Change>& changes) override;

    // The schema this build writes; older files are migrated on open.
    static constexpr int kSchemaVersion = 1;

private:
    bool migrate(QString* error);
    bool apply(const QString& boardId, qint64 sequence, const Change& change);

    QString m_path;
    QString m_connectionName;
    // The statements of every commit, prepared once.
    std::unique_ptr<QSqlQuery> m_nextSequence;
    std::unique_ptr<QSqlQuery> m_put;
    std::unique_ptr<QSqlQuery> m_remove;
};

} // namespace relay
