#pragma once

#include <QDateTime>
#include <QList>
#include <QString>

#include <QtGlobal>

namespace relay {

class SqlBoardStore;

// Administration of a store that a relay may be running on at the same
// time: each call is one short transaction of its own, so the relay only
// waits for it as for another node (SQLite's busy timeout, PostgreSQL's row
// locks). The relay learns of a deleted board within a second by itself.
class BoardAdmin
{
public:
    struct BoardInfo
    {
        QString id;
        qint64 owner = 0;
        qint64 items = 0;
        qint64 bytes = 0; // of the stored items' envelopes
        // The newest timestamp of the board's latest message (as its sender
        // stamped it), or of its newest item; invalid when there is none.
        QDateTime lastActivity;
    };

    // Uses the store, opened, and does not own it.
    explicit BoardAdmin(SqlBoardStore* store);

    bool list(QList<BoardInfo>* boards, QString* error);
    // False with an empty error when there is no such board.
    bool remove(const QString& boardId, QString* error);
    // A consistent copy of an SQLite store into `file`, which must not exist,
    // taken while the relay may write (VACUUM INTO reads one snapshot).
    bool backup(const QString& file, QString* error);

private:
    QDateTime lastActivity(const QString& boardId);

    SqlBoardStore* m_store;
};

} // namespace relay
