#pragma once

class QSvgRenderer;

namespace whiteboard {

// Registers the QML types of the module under `uri`, version 1.0. The plugin
// calls it on import; a host that links the library may call it itself.
// Registering twice is harmless.
void registerModuleTypes(const char* uri);

// The process-wide renderer of the remote pointer picture.
QSvgRenderer& arrowRenderer();

} // namespace whiteboard
