#include "CommonDialog.h"

#include <QFileDialog>
#include <QPrintDialog>
#include <QPrinter>
#include <algorithm>

namespace {

struct Answers {
    CommonDialog::SaveAnswer save;
    CommonDialog::PrinterAnswer printer;
};

Answers& answers() {
    static Answers a;
    return a;
}

} // namespace

QString CommonDialog::ShowSave(QWidget* parent, const SaveRequest& request) {
    if (answers().save)
        return answers().save(request);
    QFileDialog dialog(parent);
    dialog.setAcceptMode(QFileDialog::AcceptSave);
    // The overwrite question is the summary's own, and no extension is added to a typed name.
    dialog.setOption(QFileDialog::DontConfirmOverwrite);
    dialog.setDirectory(request.initDir);
    dialog.setNameFilter(request.filter);
    dialog.selectFile(request.fileName);
    if (dialog.exec() != QDialog::Accepted)
        return QString();
    return dialog.selectedFiles().value(0);
}

bool CommonDialog::ShowPrinter(QWidget* parent, QPrinter& printer, int minPage, int maxPage) {
    if (answers().printer)
        return answers().printer(printer, minPage, maxPage);
    QPrintDialog dialog(&printer, parent);
    dialog.setOptions(QAbstractPrintDialog::PrintToFile | QAbstractPrintDialog::PrintPageRange |
                      QAbstractPrintDialog::PrintShowPageSize);
    // A short list asks for a last page below the first; Qt's dialog wants a range, so it then
    // offers page 1 alone.
    dialog.setMinMax(minPage, std::max(minPage, maxPage));
    return dialog.exec() == QDialog::Accepted;
}

void CommonDialog::SetSaveAnswer(SaveAnswer answer) {
    answers().save = std::move(answer);
}

void CommonDialog::SetPrinterAnswer(PrinterAnswer answer) {
    answers().printer = std::move(answer);
}

void CommonDialog::Reset() {
    answers() = Answers{};
}
