#include "ProgramIcon.h"

#include <QIcon>

QIcon ProgramIcon() {
    QIcon icon;
    for (const int size : {16, 32, 48, 256})
        icon.addFile(QStringLiteral(":/icons/marquill-%1.png").arg(size), QSize(size, size));
    return icon;
}
