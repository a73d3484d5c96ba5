#include "WorkAnimation.h"

#include <QMovie>

WorkAnimation::WorkAnimation(QWidget* parent) : QLabel(parent) {
    // The image lands on the parent's top-left corner, where a page's margin would have been.
    setAlignment(Qt::AlignLeft | Qt::AlignTop);
    setAutoFillBackground(false);
}

WorkAnimation::~WorkAnimation() = default;

bool WorkAnimation::Navigate(const QString& path) {
    if (m_movie) {
        m_movie->stop();
        setMovie(nullptr);
        delete m_movie;
        m_movie = nullptr;
    }
    auto* movie = new QMovie(path, QByteArray(), this);
    if (!movie->isValid()) {
        delete movie;
        return false;
    }
    m_movie = movie;
    const QPoint offset = -pos();
    setContentsMargins(offset.x() > 0 ? offset.x() : 0, offset.y() > 0 ? offset.y() : 0, 0, 0);
    setMovie(m_movie);
    m_movie->start();
    return true;
}
