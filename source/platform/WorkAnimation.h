#pragma once

#include <QLabel>

class QMovie;

// The work animation of a run: plays an animated GIF inside its clipping parent. It sits at a
// negative offset and is larger than the parent, so only the middle of its area shows.
class WorkAnimation final : public QLabel {
    Q_OBJECT

public:
    explicit WorkAnimation(QWidget* parent = nullptr);
    ~WorkAnimation() override;

    // Starts playing the file; false when it cannot be read (the area then stays blank).
    bool Navigate(const QString& path);
    QMovie* Movie() const { return m_movie; }

private:
    QMovie* m_movie = nullptr;
};
