#pragma once

class QIcon;

// The icon of every window of the program, compiled in, so the build tree shows it too.
QIcon ProgramIcon();
