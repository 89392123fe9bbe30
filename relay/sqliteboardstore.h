#pragma once

#include "relay/sqlboardstore.h"

#include <QString>

namespace relay {

// The embedded store: one SQLite file through QtSql, in WAL mode, for one
// relay alone. A commit returns once SQLite has the transaction in its log, so
// a relay killed right after a delivery finds the change again when it
// restarts.
class SqliteBoardStore : public SqlBoardStore
{
public:
    // ":memory:" keeps the boards in memory only (the demo's relay).
    explicit SqliteBoardStore(const QString& path);
    ~SqliteBoardStore() override;

protected:
    void configure(QSqlDatabase& db) override;
    bool prepareConnection(QString* error) override;
    int schemaVersion(QString* error) override;
    bool setSchemaVersion(int version) override;
    void beforeClose() override;
    QString name() const override { return m_path; }

private:
    QString m_path;
};

} // namespace relay
