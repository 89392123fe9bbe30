#pragma once

#include "relay/boardstore.h"

#include <QString>

#include <memory>

class QSqlDatabase;
class QSqlQuery;

namespace relay {

// A store on a QtSql database: the tables, statements and transactions both
// engines share. A subclass opens the connection and says how its engine
// spells what differs.
class SqlBoardStore : public BoardStore
{
public:
    // What differs between the engines.
    struct Dialect
    {
        // Each takes the schema from the version before it to its own.
        QList<const char*> migrations;
    };

    ~SqlBoardStore() override;

    bool open(QString* error) override;
    void close() override;

    Board board(const QString& boardId) override;
    bool createBoard(const QString& boardId, qint64 owner) override;
    QList<Item> items(const QString& boardId) override;
    std::optional<Item> item(const QString& boardId, const QString& gid) override;
    qint64 lock(const QString& boardId) override;
    void rollback() override;
    qint64 commit(const QString& boardId, const QList<Change>& changes, const Entry& entry) override;
    QList<Entry> entries(const QString& boardId, qint64 after) override;

protected:
    SqlBoardStore(const QString& driver, const Dialect& dialect);

    QSqlDatabase database() const;
    QString connectionName() const { return m_connectionName; }
    // Sets the connection up before it opens (name, host, user).
    virtual void configure(QSqlDatabase& db) = 0;
    // Runs once the connection is open, before the migrations.
    virtual bool prepareConnection(QString* error) = 0;
    virtual int schemaVersion(QString* error) = 0;
    virtual bool setSchemaVersion(int version) = 0;
    // Runs inside the transaction of a commit, once it has its sequence.
    virtual bool beforeCommit(const QString& boardId, qint64 sequence)
    {
        Q_UNUSED(boardId);
        Q_UNUSED(sequence);
        return true;
    }
    // Runs as the connection is about to close.
    virtual void beforeClose() {}
    // The first column of the one row `statement` yields; -1 on failure.
    int readNumber(const QString& statement, QString* error);
    // A description of the database for errors.
    virtual QString name() const = 0;

private:
    bool migrate(QString* error);
    bool apply(const QString& boardId, qint64 sequence, int step, const Change& change);

    QString m_driver;
    Dialect m_dialect;
    QString m_connectionName;
    // The statements of every commit, prepared once.
    std::unique_ptr<QSqlQuery> m_lock;
    // The number lock() took for the commit.
    qint64 m_next = 0;
    std::unique_ptr<QSqlQuery> m_put;
    std::unique_ptr<QSqlQuery> m_remove;
    std::unique_ptr<QSqlQuery> m_entry;
    std::unique_ptr<QSqlQuery> m_entries;
};

} // namespace relay
