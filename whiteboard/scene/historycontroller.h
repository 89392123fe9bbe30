#pragma once

#include <QObject>

// Kept as an empty class: the undo stack lives in the scene.
class HistoryController : public QObject
{
    Q_OBJECT

public:
    explicit HistoryController(QObject* parent = nullptr);
};
