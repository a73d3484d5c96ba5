#include "ARButton.h"

#include <QEnterEvent>
#include <QPainter>
#include <QStyleOptionFocusRect>

ARButton::ARButton(QWidget* parent) : QPushButton(parent) {
    setAttribute(Qt::WA_Hover);
    setMouseTracking(true);
    // The hover button has no Default property: Enter presses none of them, not even in a dialog.
    setAutoDefault(false);
}

void ARButton::SetCaption(const QString& caption) {
    setText(caption);
    update();
}

void ARButton::SetForeColor(const QColor& color) {
    m_foreColor = color;
    update();
}

void ARButton::SetForeColorOnMouse(const QColor& color) {
    m_foreColorOnMouse = color;
    update();
}

void ARButton::SetBackColor(const QColor& color) {
    m_backColor = color;
    update();
}

void ARButton::SetBackColorOnMouse(const QColor& color) {
    m_backColorOnMouse = color;
    update();
}

void ARButton::SetShowFocus(bool show) {
    m_showFocus = show;
    update();
}

void ARButton::SetStyle(int style) {
    m_style = style;
    update();
}

void ARButton::SetBorderStyle(int borderStyle) {
    m_borderStyle = borderStyle;
    update();
}

void ARButton::SetPicture(const QPixmap& picture) {
    m_picture = picture;
    update();
}

QColor ARButton::CurrentForeColor() const {
    return m_pointerOver ? m_foreColorOnMouse : m_foreColor;
}

QColor ARButton::CurrentBackColor() const {
    return m_pointerOver ? m_backColorOnMouse : m_backColor;
}

void ARButton::enterEvent(QEnterEvent* event) {
    QPushButton::enterEvent(event);
    m_pointerOver = true;
    update();
    Q_EMIT PointerEnter();
}

void ARButton::leaveEvent(QEvent* event) {
    QPushButton::leaveEvent(event);
    m_pointerOver = false;
    update();
    Q_EMIT PointerLeave();
}

void ARButton::paintEvent(QPaintEvent*) {
    QPainter painter(this);
    const QRect box = rect();
    painter.fillRect(box, CurrentBackColor());

    const bool pressed = isDown();
    if (m_style == 1) {
        // A raised face that sinks while pressed.
        const QColor light = pressed ? palette().color(QPalette::Dark) : QColor(255, 255, 255);
        const QColor dark = pressed ? QColor(255, 255, 255) : palette().color(QPalette::Dark);
        painter.setPen(light);
        painter.drawLine(box.topLeft(), box.topRight());
        painter.drawLine(box.topLeft(), box.bottomLeft());
        painter.setPen(dark);
        painter.drawLine(box.bottomLeft(), box.bottomRight());
        painter.drawLine(box.topRight(), box.bottomRight());
    }
    if (m_borderStyle == 1) {
        painter.setPen(QColor(128, 128, 128));
        painter.drawRect(box.adjusted(0, 0, -1, -1));
    }

    QRect content = box.adjusted(3, 2, -3, -2);
    if (pressed)
        content.translate(1, 1);
    if (!m_picture.isNull()) {
        const QSize size = m_picture.deviceIndependentSize().toSize();
        const QPoint at(content.left() + 2, content.center().y() - size.height() / 2);
        painter.drawPixmap(at, m_picture);
        content.setLeft(at.x() + size.width() + 2);
    }

    QColor fore = CurrentForeColor();
    if (!isEnabled())
        fore = palette().color(QPalette::Disabled, QPalette::WindowText);
    painter.setPen(fore);
    painter.setFont(font());
    painter.drawText(content, Qt::AlignCenter | Qt::TextShowMnemonic, text());

    if (m_showFocus && hasFocus()) {
        QStyleOptionFocusRect option;
        option.initFrom(this);
        option.rect = box.adjusted(3, 3, -3, -3);
        option.backgroundColor = CurrentBackColor();
        style()->drawPrimitive(QStyle::PE_FrameFocusRect, &option, &painter, this);
    }
}
