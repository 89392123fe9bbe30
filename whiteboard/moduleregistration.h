#pragma once

namespace whiteboard {

// Registers the QML types of the module under `uri`, version 1.0. The plugin
// calls it on import; a host that links the library may call it itself.
// Registering twice is harmless.
void registerModuleTypes(const char* uri);

} // namespace whiteboard
