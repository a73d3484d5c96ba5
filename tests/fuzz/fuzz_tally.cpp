// The tally with its exclusions. The input up to its first NUL is the exclusion file, and each
// line after it a title. The exclusion index must answer as a plain search of the joined lines,
// and the table must hold each word once, found again through its index.
#include "FuzzTarget.h"
#include "modParser.h"

#include <QFile>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, size_t size) {
    const QByteArray input = FuzzBytes(data, size);
    const qsizetype cut = input.indexOf('\0');
    QFile file(FuzzSetUp() + QStringLiteral("/exclude.dat"));
    FUZZ_CHECK(file.open(QIODevice::WriteOnly | QIODevice::Truncate));
    file.write(input.left(cut));
    file.close();
    HarvestState = HarvestRecord();
    LoadExclusions();
    ResetKeywordTable();
    const QString exclusions = HarvestState.ExclusionText.toUpper();
    for (const QString& title : QString::fromUtf8(input.mid(cut + 1)).split(u'\n')) {
        TallyTitle(title);
        for (const QString& piece : title.toUpper().split(u' '))
            FUZZ_CHECK(HarvestState.ExclusionIndex.Contains(piece) == exclusions.contains(piece));
    }
    const KeywordGrid& table = HarvestState.KeywordTable;
    for (qsizetype n = 1; n <= table.LastEntry(); ++n)
        FUZZ_CHECK(table.Find(table.Word(n).toUpper()) == n && table.CountValue(n) > 0);
    return 0;
}
