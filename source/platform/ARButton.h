#pragma once

#include <QColor>
#include <QPixmap>
#include <QPushButton>

// The hover button of every window: a push button that paints itself in its own colours and
// switches to the on-mouse colours while the pointer is over it. The design-time properties
// keep the names the forms use, so a .ui file can set them on the promoted widget.
class ARButton final : public QPushButton {
    Q_OBJECT
    Q_PROPERTY(QString caption READ Caption WRITE SetCaption)
    Q_PROPERTY(QColor forecolor READ ForeColor WRITE SetForeColor)
    Q_PROPERTY(QColor forecoloronmouse READ ForeColorOnMouse WRITE SetForeColorOnMouse)
    Q_PROPERTY(QColor backcolor READ BackColor WRITE SetBackColor)
    Q_PROPERTY(QColor backcoloronmouse READ BackColorOnMouse WRITE SetBackColorOnMouse)
    Q_PROPERTY(bool showfocus READ ShowFocus WRITE SetShowFocus)
    Q_PROPERTY(int style READ Style WRITE SetStyle)
    Q_PROPERTY(int borderstyle READ BorderStyle WRITE SetBorderStyle)
    Q_PROPERTY(QPixmap picture READ Picture WRITE SetPicture)

public:
    explicit ARButton(QWidget* parent = nullptr);

    QString Caption() const { return text(); }
    void SetCaption(const QString& caption);
    bool Enabled() const { return isEnabled(); }
    void SetEnabled(bool enabled) { setEnabled(enabled); }

    QColor ForeColor() const { return m_foreColor; }
    void SetForeColor(const QColor& color);
    QColor ForeColorOnMouse() const { return m_foreColorOnMouse; }
    void SetForeColorOnMouse(const QColor& color);
    QColor BackColor() const { return m_backColor; }
    void SetBackColor(const QColor& color);
    QColor BackColorOnMouse() const { return m_backColorOnMouse; }
    void SetBackColorOnMouse(const QColor& color);
    bool ShowFocus() const { return m_showFocus; }
    void SetShowFocus(bool show);
    // 0 flat caption on the background, 1 raised face.
    int Style() const { return m_style; }
    void SetStyle(int style);
    // 0 no border, 1 a single line.
    int BorderStyle() const { return m_borderStyle; }
    void SetBorderStyle(int borderStyle);
    QPixmap Picture() const { return m_picture; }
    void SetPicture(const QPixmap& picture);

    bool PointerOver() const { return m_pointerOver; }
    // The colours the button paints with at this moment.
    QColor CurrentForeColor() const;
    QColor CurrentBackColor() const;

Q_SIGNALS:
    void PointerEnter();
    void PointerLeave();

protected:
    void enterEvent(QEnterEvent* event) override;
    void leaveEvent(QEvent* event) override;
    void paintEvent(QPaintEvent* event) override;

private:
    QColor m_foreColor{0, 0, 0};
    QColor m_foreColorOnMouse{0, 0, 0};
    QColor m_backColor{240, 240, 233};
    QColor m_backColorOnMouse{240, 240, 233};
    bool m_showFocus = false;
    int m_style = 1;
    int m_borderStyle = 1;
    QPixmap m_picture;
    bool m_pointerOver = false;
};
