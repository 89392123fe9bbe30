#pragma once

#include "scene/graphicscene.h"
#include "scene/itemversion.h"

#include <QList>
#include <QPointF>
#include <QSharedPointer>

#include <memory>
#include <string>

namespace google::protobuf {
class MessageLite;
}

namespace whiteboard {

// How a board keeps in step with the others: it stamps every local change
// with a version and sends it, and applies what the others send where it is
// newer than what the board holds. It keeps the pointer marks of the other
// users. GUI thread; it reads and writes the board state under itemsMutex.
class SyncEngine
{
public:
    using Version = ItemVersion;

    explicit SyncEngine(GraphicScene& scene);
    ~SyncEngine();
    SyncEngine(const SyncEngine&) = delete;
    SyncEngine& operator=(const SyncEngine&) = delete;

    // Local milliseconds less the offset fixed at the join.
    qulonglong serverTime() const;
    // Fixes the server clock offset and announces this user on the board.
    void join(qint64 serverTime);

    // Tells the others the whole state of each item, each under a new version.
    void sendItems(im::whiteboard::GraphicActionType type, const GraphicItemList& items);
    // Stamps and sends a clear; returns its version.
    Version sendOperation(im::whiteboard::UserOperation_Type type);
    void sendPointer(const QPointF& position);
    // Raises the clear mark of everybody (`userId` null) or of one author to
    // `version` and drops the live items that are older.
    void raiseClearMark(const Version& version, const qlonglong* userId);
    // Gives `item` the state that its message carries.
    void takeWireForm(GraphicItem* item);

    // Applies one message from the others; takes ownership of `data`.
    void receive(im::whiteboard::TransferData* data);

    const GraphicItemList& marks() const { return m_marks; }
    // Takes every other user's pointer off the board.
    void dropMarks();

private:
    // A received list entry, admitted and parsed.
    struct ReceivedEntry;
    // The admitted entries of an action's list; false for a list this board
    // does not know.
    static bool entriesOf(const im::whiteboard::GraphicAction& action, QList<ReceivedEntry>& entries);
    static qint64 newDeviceId();
    // Whether a received version is below the clocks' end (VersionBound).
    static bool admitsVersion(qint64 version);

    // The view's "id", which every message names.
    QString boardId() const;
    // Every outgoing message leaves through here.
    void post(im::whiteboard::TransferData* data);

    // Incoming envelopes, by kind of body.
    void applyEnvelope(const std::string& bytes);
    void applyGraphicAction(const im::whiteboard::GraphicAction& action);
    void applyUnversionedAction(const im::whiteboard::GraphicAction& action);
    // Returns the area to repaint.
    QRect applyUnversionedEntry(const ReceivedEntry& entry, const QSharedPointer<GraphicItem>& updated);
    void applyVersionedAction(const im::whiteboard::GraphicAction& action, const Version& version);
    // `live` is the item of the gid shown now, `held` any object of it.
    void placeVersionedEntry(const ReceivedEntry& entry, const QString& gid, const QSharedPointer<GraphicItem>& live,
                             const QSharedPointer<GraphicItem>& held);
    // Takes received items out as a detach does, without a message.
    void dropItems(const GraphicItemList& items);
    void applyUserAction(const im::whiteboard::UserAction& action);
    void applyUserOperation(const im::whiteboard::UserOperation& operation);
    // The pointer marks: one per other user, dropped when the user leaves.
    void dropMark(qlonglong userId);
    void moveMark(qlonglong userId, const im::whiteboard::UserMouseInfoData& info);

    GraphicScene& m_scene;
    // Random per view and never 0: two devices of one account must not make
    // equal versions for different changes.
    const qint64 m_deviceId = newDeviceId();
    qint64 m_serverTimeOffset = 0;
    GraphicItemList m_marks;
};

} // namespace whiteboard
