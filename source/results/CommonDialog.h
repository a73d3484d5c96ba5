#pragma once

#include <QString>
#include <functional>

class QPrinter;
class QWidget;

// The summary's file and print dialogs. Tests answer them in advance through the two answer
// functions, so that no real dialog opens under a test; with no answer set the real Qt dialogs run.
class CommonDialog final {
public:
    struct SaveRequest {
        QString initDir;
        QString filter;
        QString fileName;
    };
    // The chosen path, or an empty text when the user cancelled.
    using SaveAnswer = std::function<QString(const SaveRequest& request)>;
    // Sets the printer as the user would (range, copies, output) and says whether they accepted.
    using PrinterAnswer = std::function<bool(QPrinter& printer, int minPage, int maxPage)>;

    static QString ShowSave(QWidget* parent, const SaveRequest& request);
    static bool ShowPrinter(QWidget* parent, QPrinter& printer, int minPage, int maxPage);

    static void SetSaveAnswer(SaveAnswer answer);
    static void SetPrinterAnswer(PrinterAnswer answer);
    static void Reset();
};
