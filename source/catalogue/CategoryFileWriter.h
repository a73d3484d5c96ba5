#pragma once

#include <QByteArray>
#include <QString>
#include <sys/types.h>

// How the category file and its companions reach the disk. Every write goes to a temporary file
// in the same folder, which is then renamed over the file: the file is always either the former or
// the new content, whether the process is killed mid-save or the disk fills up.

// The file a path finally names, through any symbolic links; the path itself when it is none.
// A file that is a link is written through it, so the link stays a link.
QString ResolveFileLinks(const QString& path);

// The name pattern of our temporary files beside path: path + ".tmp-" + six characters.
bool IsTemporaryFileOf(const QString& path, const QString& candidate);

// Removes temporary files of path that a killed process left behind, once they are older than a
// minute (a younger one may belong to a save in progress elsewhere).
void RemoveStaleTemporaryFiles(const QString& path);

// Writes bytes as the whole content of path (no links resolved); false when it could not.
bool ReplaceFileContents(const QString& path, const QByteArray& bytes);

// The saves of one document, which grows a little with each. The former file is kept as the
// next temporary file (a second name for it is made before the rename), so each save writes only
// the bytes that differ from what that file already holds, not the whole document.
class CategoryFileWriter final {
public:
    CategoryFileWriter() = default;
    ~CategoryFileWriter();
    CategoryFileWriter(const CategoryFileWriter&) = delete;
    CategoryFileWriter& operator=(const CategoryFileWriter&) = delete;

    // The bytes to write next may differ from the last ones from this offset on.
    void NoteChange(qsizetype from);
    // Makes bytes the content of target; false when the disk refused, target untouched then.
    bool Write(const QString& target, const QByteArray& bytes);
    // Removes the kept temporary file and forgets the file in place: the next write starts afresh,
    // and only a second one keeps a temporary file again (a document opened only to be read, as
    // the window's, leaves none beside the file).
    void Drop();

private:
    bool CreateSpare(const QByteArray& target);
    bool WriteOnce(const QByteArray& target, const QByteArray& bytes, bool& spareVanished);

    QByteArray m_target;
    int m_spareFd = -1;
    QByteArray m_spareName;
    // How many leading bytes of the next content the temporary file and the file already hold.
    qsizetype m_spareValid = 0;
    qsizetype m_fileValid = 0;
    // The file this writer put in place last; any other file there is not ours to reuse.
    dev_t m_fileDevice = 0;
    ino_t m_fileInode = 0;
};
