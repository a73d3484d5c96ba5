#pragma once

#include "LinePrinter.h"

#include <QDate>
#include <QDialog>
#include <QString>
#include <functional>
#include <memory>

namespace Ui {
class frmSummary;
}

// The summary of a finished search: where it ran, how many distinct words it found, and the
// words with their counts, most frequent first. It is filled once, while it loads, and is the
// source for saving and printing the list.
class frmSummary final : public QDialog {
    Q_OBJECT

public:
    // Runs the whole load: the list, its order, the captions and the count.
    explicit frmSummary(QWidget* owner);
    ~frmSummary() override;

    // Adds one row per entry of the keyword table, in table order.
    void PopulateResults();

    QString ResultsPath() const { return m_resultsPath; }

    // Doubles every " & " so that the label shows one ampersand rather than a shortcut mark.
    static void EscapeAmpersands(QString& text);
    // What a label shows for a caption: "&&" as "&", and a lone "&" marks a shortcut and is not shown.
    static QString ShownCaption(const QString& caption);
    static QString DefaultResultsFileName(const QDate& date);
    // The first folder of the browse entry's dialog: Documents, else home.
    static QString ResultsFirstFolder();
    // The last page the print dialog offers: the rows over 40, rounded half to even.
    static int PrintMaxPage(int rows);
    static constexpr int RowsPerPrintPage = 40;

    // Where the default file name takes today's date from; tests fix it.
    void SetDateSource(std::function<QDate()> today);
    // Sees each line the printer puts on paper.
    void SetPrintObserver(LinePrinter::Observer observer);

protected:
    bool eventFilter(QObject* watched, QEvent* event) override;

private:
    void SortResults();
    void SetCaptions();
    QString AskResultsFile(const QString& initDir);
    void cmdFile_Click();
    void txtFileName_DblClick();
    void SaveResultsFile(const QString& path);
    void cmdPrint_Click();
    void cmdHelp_Click();
    void ARButton2_Click();
    void cmdExit_Click();

    std::unique_ptr<Ui::frmSummary> m_ui;
    QString m_resultsPath;
    std::function<QDate()> m_today;
    LinePrinter::Observer m_printObserver;
};
