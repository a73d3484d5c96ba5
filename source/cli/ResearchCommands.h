#pragma once

#include <QStringList>

// The seller's research: counting kept titles again, comparing two lists, comparing two sites.
int RunRecountCommand(const QStringList& arguments);
int RunDiffCommand(const QStringList& arguments);
int RunCompareCommand(const QStringList& arguments);
