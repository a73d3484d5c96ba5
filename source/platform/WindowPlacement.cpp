#include "WindowPlacement.h"

#include <QScreen>
#include <QWidget>
#include <algorithm>

void CentreOnOwner(QWidget* window, const QWidget* owner) {
    if (!owner)
        return;
    owner = owner->window();
    const QRect ownerFrame = owner->frameGeometry();
    const QSize frameSize = window->size() + (ownerFrame.size() - owner->size());
    QRect frame(QPoint(), frameSize);
    frame.moveCenter(ownerFrame.center());
    if (const QScreen* screen = owner->screen()) {
        const QRect area = screen->availableGeometry();
        frame.moveLeft(
            std::clamp(frame.left(), area.left(), std::max(area.left(), area.right() + 1 - frame.width())));
        frame.moveTop(
            std::clamp(frame.top(), area.top(), std::max(area.top(), area.bottom() + 1 - frame.height())));
    }
    // A window's position is its frame's; and a window that has been moved keeps the place.
    window->move(frame.topLeft());
}
