#pragma once

class QSurfaceFormat;

// The OpenGL that the preview draws with: a 3.3 core profile.
namespace open_gl {

// Make it the default format before the application object exists; the preview asks for none.
QSurfaceFormat format();

// Whether this machine gives such a context, in hardware or software. Asks the display each time.
// Without one, a window that contains an OpenGL widget does not open but ends the program.
bool isUsable();

} // namespace open_gl
