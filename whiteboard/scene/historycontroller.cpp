#include "scene/historycontroller.h"

HistoryController::HistoryController(QObject* parent)
    : QObject(parent)
{
}
