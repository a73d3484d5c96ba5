#pragma once

#include <QString>
#include <functional>
#include <memory>

class QPainter;
class QPrinter;

// A line as it went to paper: which document and sheet (both from 1) and its text.
struct PrintedLine {
    int document = 0;
    int page = 0;
    QString text;
};

// The printer as the summary uses it: one print operation per line, in the printer's default
// font, going on to a new sheet by itself when one is full, and EndDoc closing a document.
// A document opens with its first line, so a document without lines puts nothing on paper.
class LinePrinter final {
public:
    using Observer = std::function<void(const PrintedLine& line)>;

    explicit LinePrinter(QPrinter& printer, Observer observer = {});
    ~LinePrinter();
    LinePrinter(const LinePrinter&) = delete;
    LinePrinter& operator=(const LinePrinter&) = delete;

    // False when the printer cannot be opened or refuses a new sheet.
    bool Print(const QString& text);
    // False when the document could not be finished.
    bool EndDoc();

    // The lines a sheet holds; known once a document has begun.
    int LinesPerPage() const { return m_linesPerPage; }

    // The file that document n goes to when the printer writes a file: the chosen name for the
    // first, then "name (n).ext", so that no copy overwrites the one before.
    static QString DocumentFileName(const QString& chosen, int document);

private:
    bool Begin();

    QPrinter& m_printer;
    Observer m_observer;
    std::unique_ptr<QPainter> m_painter;
    QString m_chosenFileName;
    int m_document = 0;
    int m_page = 0;
    int m_lineOnPage = 0;
    int m_linesPerPage = 0;
    int m_lineSpacing = 0;
    int m_ascent = 0;
};
