#pragma once

#include <QStringList>

// marquill-cli search: one keyword search, its words in csv, tsv or json, and its health report.
int RunSearchCommand(const QStringList& arguments);
