#pragma once

#include <QString>
#include <functional>

// Where the program's files live; nothing else builds a data path.
//   Data:    the user's files: the category file, and an exclusion list of the user's own
//   Shipped: the read-only files the program came with (share/marquill when installed)
//   Program: the folder of the executable, where the other program file of a new search lies
enum class DataFolderRule {
    Explicit, // --data or MARQUILL_DATA named the folder
    Portable, // the program's own folder holds the category file and may be written
    UserData  // the user's data folder, seeded from the shipped category file
};

struct DataFolders {
    DataFolderRule Rule = DataFolderRule::Portable;
    QString Data;
    QString Shipped;
    QString Program;
};

// What the rules look at, given apart so that every case can be tried without installing.
struct DataFolderFacts {
    QString Explicit;    // --data (or a test's folder)
    QString Environment; // MARQUILL_DATA
    QString Program;
    QString UserData;
    std::function<bool(const QString& folder)> IsWritable;
};

DataFolders ResolveDataFolders(const DataFolderFacts& facts);

// The folders of this process, resolved at first use from the real facts.
const DataFolders& CurrentDataFolders();
// The user's data folder of every Marquill program: the AppDataLocation of "marquill".
QString UserDataFolder();

// The category file. In the user's data folder it is first copied from the shipped one, which is
// said once on standard error.
QString CategoryFilePath();
// A read-only file ("exclude.dat", "helpfile.htm", "anwork.gif", "logo.png"): the user's copy in
// the data folder when there is one, else the shipped one.
QString ReadOnlyFilePath(const QString& name);
QString ExclusionFilePath();
QString ProgramFolder();

// --data: one folder for the user's files; the files the program came with are still read from
// the installation unless the folder holds its own copy. Empty goes back to the rules.
void SetDataFolder(const QString& folder);
// For tests and tools: one folder for everything, the program files included. Empty goes back to
// the rules.
void SetProgramFolder(const QString& folder);
