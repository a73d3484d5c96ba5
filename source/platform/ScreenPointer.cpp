#include "ScreenPointer.h"

#include <QCursor>
#include <QGuiApplication>

namespace {
int currentPointer = ScreenPointer::Default;
bool overridden = false;
} // namespace

void ScreenPointer::Set(int pointer) {
    currentPointer = pointer == Wait ? Wait : Default;
    // One override at most: setting the wait cursor twice must not need two restores.
    if (currentPointer == Wait && !overridden) {
        QGuiApplication::setOverrideCursor(QCursor(Qt::WaitCursor));
        overridden = true;
    } else if (currentPointer == Default && overridden) {
        QGuiApplication::restoreOverrideCursor();
        overridden = false;
    }
}

int ScreenPointer::Current() {
    return currentPointer;
}
