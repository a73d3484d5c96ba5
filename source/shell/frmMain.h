#pragma once

#include "harvest/modMain.h"

#include <QMainWindow>
#include <functional>
#include <memory>

class CategoryNode;
class CategoryTree;
class QTreeWidgetItem;

namespace Ui {
class frmMain;
}

// The one working window: site, category tree, auction limit, the search and stop commands.
// Its controls are the state of the program; nothing else records whether a run is on.
class frmMain final : public QMainWindow {
    Q_OBJECT

public:
    // Loads the window: installs its hooks and runs Form_Load. Show it afterwards.
    explicit frmMain(QWidget* parent = nullptr);
    ~frmMain() override;

    // Seams for the tests; each has the program's own behaviour by default.
    // The end of the process on cmdExit.
    static void SetExitProcess(std::function<void()> exitProcess);
    // The connectivity probe: the body of the URL, or "" when there is none.
    static void SetProbe(std::function<QString(const QString& url)> probe);
    // The summary step of the search command: load the summary and show it modally.
    static void SetShowSummary(std::function<void(QWidget* owner)> showSummary);
    static void ResetSeams();

    // The node of the selected item of treCategories, or null when nothing is selected.
    const CategoryNode* SelectedNode() const;
    // The tree item that shows a node (tests click through it).
    QTreeWidgetItem* ItemOfNode(const CategoryNode* node) const;

protected:
    void closeEvent(QCloseEvent* event) override;
    bool eventFilter(QObject* watched, QEvent* event) override;

private:
    void Form_Load();
    void InstallHooks();
    void ApplyLook();
    void RefillTree();
    void SetCommandsEnabled(bool enabled);
    void HideFeedback();

    void cmdGetKeywords_Click();
    void SearchCommand();
    void cmdStopSearch_Click();
    void cmdRefresh_Click();
    void cmdExit_Click();
    void treCategories_Click();

    std::unique_ptr<Ui::frmMain> m_ui;
    // The tree on show: its nodes stay valid for the items that point at them.
    std::shared_ptr<CategoryTree> m_shownTree;
    // Set while the search or refresh command runs, so a close can end the run first.
    bool m_inRun = false;
    bool m_closeAfterRun = false;
    // A press on the tree's blank area, held until its release.
    enum class BlankClick { None, Click, Swallow };
    BlankClick m_blankClick = BlankClick::None;
};
