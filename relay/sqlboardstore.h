#pragma once

#include "relay/boardstore.h"

#include <QHash>
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
        // Adds its first argument to the sequence of the board named by the
        // second and returns the new number; bindLock() may bind more.
        const char* lock = "UPDATE boards SET sequence = sequence + ? WHERE id = ? RETURNING sequence";
    };

    ~SqlBoardStore() override;

    bool open(QString* error) override;
    void close() override;

    Board board(const QString& boardId) override;
    bool createBoard(const QString& boardId, qint64 owner) override;
    bool items(const QString& boardId, QList<Item>* items) override;
    std::optional<Item> item(const QString& boardId, const QString& gid) override;
    qint64 lock(const QString& boardId, int count) override;
    void rollback() override;
    bool write(const QString& boardId, const QList<Message>& messages) override;
    bool commit() override;
    bool entries(const QString& boardId, qint64 after, QList<Entry>* entries) override;
    bool probe() override;
    bool lost() const override { return m_lost; }
    bool reopen(QString* error) override;

    // The open connection, for administration beside the store's own work.
    QSqlDatabase database() const;

protected:
    SqlBoardStore(const QString& driver, const Dialect& dialect);

    QString connectionName() const { return m_connectionName; }
    // Sets the connection up before it opens (name, host, user).
    virtual void configure(QSqlDatabase& db) = 0;
    // Runs once the connection is open, before the migrations.
    virtual bool prepareConnection(QString* error) = 0;
    virtual int schemaVersion(QString* error) = 0;
    virtual bool setSchemaVersion(int version) = 0;
    // Binds what the dialect's lock statement takes beyond the count and the
    // board.
    virtual void bindLock(QSqlQuery& query, const QString& boardId) { Q_UNUSED(query); Q_UNUSED(boardId); }
    // Runs as the connection is about to close.
    virtual void beforeClose() {}
    // The first column of the one row `statement` yields; -1 on failure.
    int readNumber(const QString& statement, QString* error);
    // A description of the database for errors.
    virtual QString name() const = 0;

private:
    struct Row;
    bool migrate(QString* error);
    // A statement prepared once for the connection's life, by its text.
    QSqlQuery& statement(const QString& text);
    // The statement of `rows` rows of `columns` values each after `head`.
    QSqlQuery& rowsStatement(const QString& head, int rows, int columns, const QString& tail = QString());
    bool putRows(const QString& boardId, const QList<Row>& rows);
    bool removeRows(const QString& boardId, const QStringList& gids);
    bool clear(const QString& boardId, const Change& change);

    QString m_driver;
    Dialect m_dialect;
    QString m_connectionName;
    // Every statement prepared so far: on PostgreSQL a statement prepared
    // for one call costs two more round trips (prepare, deallocate).
    QHash<QString, std::shared_ptr<QSqlQuery>> m_statements;
    bool m_lost = false;
    // Bytes of entries written per board since its last pruning.
    QHash<QString, qint64> m_unprunedBytes;
};

} // namespace relay
