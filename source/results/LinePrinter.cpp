#include "LinePrinter.h"

#include <QFileInfo>
#include <QFontMetrics>
#include <QPainter>
#include <QPrinter>
#include <algorithm>

LinePrinter::LinePrinter(QPrinter& printer, Observer observer)
    : m_printer(printer), m_observer(std::move(observer)), m_chosenFileName(printer.outputFileName()) {}

LinePrinter::~LinePrinter() {
    // A document cut short by an error still goes out with what it holds.
    if (m_painter && m_painter->isActive())
        m_painter->end();
}

QString LinePrinter::DocumentFileName(const QString& chosen, int document) {
    if (chosen.isEmpty() || document <= 1)
        return chosen;
    const QFileInfo info(chosen);
    const QString suffix = info.suffix();
    QString base = chosen;
    if (!suffix.isEmpty())
        base.chop(suffix.size() + 1);
    QString name = base + QStringLiteral(" (%1)").arg(document);
    if (!suffix.isEmpty())
        name += QLatin1Char('.') + suffix;
    return name;
}

bool LinePrinter::Begin() {
    ++m_document;
    if (!m_chosenFileName.isEmpty())
        m_printer.setOutputFileName(DocumentFileName(m_chosenFileName, m_document));
    if (!m_painter)
        m_painter = std::make_unique<QPainter>();
    if (!m_painter->begin(&m_printer))
        return false;
    const QFontMetrics metrics(m_painter->font(), &m_printer);
    m_lineSpacing = std::max(1, metrics.lineSpacing());
    m_ascent = metrics.ascent();
    const int pageHeight = m_printer.pageLayout().paintRectPixels(m_printer.resolution()).height();
    m_linesPerPage = std::max(1, pageHeight / m_lineSpacing);
    m_page = 1;
    m_lineOnPage = 0;
    return true;
}

bool LinePrinter::Print(const QString& text) {
    if (!m_painter || !m_painter->isActive()) {
        if (!Begin())
            return false;
    }
    if (m_lineOnPage == m_linesPerPage) {
        if (!m_printer.newPage())
            return false;
        ++m_page;
        m_lineOnPage = 0;
    }
    m_painter->drawText(0, m_lineOnPage * m_lineSpacing + m_ascent, text);
    ++m_lineOnPage;
    if (m_observer)
        m_observer(PrintedLine{m_document, m_page, text});
    return true;
}

bool LinePrinter::EndDoc() {
    if (!m_painter || !m_painter->isActive())
        return true;
    return m_painter->end();
}
