#include "CategoryFileWriter.h"

#include <QDateTime>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QRandomGenerator>
#include <algorithm>
#include <cerrno>
#include <climits>
#include <cstdlib>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace {

const QString TemporaryInfix = QStringLiteral(".tmp-");
constexpr qsizetype TemporarySuffixLength = 6;
constexpr int StaleSeconds = 60;

bool IsSuffixCharacter(QChar c) {
    return (c >= u'a' && c <= u'z') || (c >= u'A' && c <= u'Z') || (c >= u'0' && c <= u'9');
}

// Writes every byte from offset on, or reports that it could not: a full disk or a file size limit
// shows up as a short write that must not be taken for success.
bool WriteAllAt(int fd, const QByteArray& bytes, qsizetype offset) {
    while (offset < bytes.size()) {
        const ssize_t written =
            ::pwrite(fd, bytes.constData() + offset, size_t(bytes.size() - offset), offset);
        if (written < 0 && errno == EINTR)
            continue;
        if (written <= 0)
            return false;
        offset += written;
    }
    return true;
}

// A second name for the file at target under a fresh temporary name; empty when none was made.
QByteArray LinkUnderTemporaryName(const QByteArray& target) {
    static const char alphabet[] = "abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ0123456789";
    for (int attempt = 0; attempt < 8; ++attempt) {
        QByteArray name = target + TemporaryInfix.toLatin1();
        for (qsizetype i = 0; i < TemporarySuffixLength; ++i)
            name += alphabet[QRandomGenerator::global()->bounded(int(sizeof alphabet) - 1)];
        if (::link(target.constData(), name.constData()) == 0)
            return name;
        if (errno != EEXIST)
            break;
    }
    return QByteArray();
}

} // namespace

QString ResolveFileLinks(const QString& path) {
    QString current = path;
    // As many hops as the system itself follows before it calls a chain a loop.
    for (int hop = 0; hop < 40; ++hop) {
        char target[PATH_MAX];
        const ssize_t size = ::readlink(QFile::encodeName(current).constData(), target, sizeof target);
        if (size <= 0 || size_t(size) >= sizeof target)
            break;
        const QString next = QFile::decodeName(QByteArray(target, size));
        current = QDir::isAbsolutePath(next)
                      ? next
                      : QDir::cleanPath(QFileInfo(current).absolutePath() + u'/' + next);
    }
    return current;
}

bool IsTemporaryFileOf(const QString& path, const QString& candidate) {
    const QString prefix = QFileInfo(path).fileName() + TemporaryInfix;
    const QString name = QFileInfo(candidate).fileName();
    return name.size() == prefix.size() + TemporarySuffixLength && name.startsWith(prefix) &&
           std::all_of(name.cbegin() + prefix.size(), name.cend(), IsSuffixCharacter);
}

void RemoveStaleTemporaryFiles(const QString& path) {
    const QFileInfo info(path);
    const QDir folder = info.absoluteDir();
    const QString pattern = info.fileName() + TemporaryInfix + QString(TemporarySuffixLength, u'?');
    const qint64 staleBefore = QDateTime::currentSecsSinceEpoch() - StaleSeconds;
    for (const QString& name : folder.entryList({pattern}, QDir::Files | QDir::Hidden | QDir::System)) {
        const QByteArray file = QFile::encodeName(folder.filePath(name));
        struct stat status {};
        if (IsTemporaryFileOf(path, name) && ::lstat(file.constData(), &status) == 0 &&
            S_ISREG(status.st_mode) && status.st_mtime < staleBefore)
            ::unlink(file.constData());
    }
}

bool ReplaceFileContents(const QString& path, const QByteArray& bytes) {
    CategoryFileWriter writer;
    return writer.Write(path, bytes);
}

CategoryFileWriter::~CategoryFileWriter() {
    Drop();
}

void CategoryFileWriter::NoteChange(qsizetype from) {
    m_spareValid = std::min(m_spareValid, from);
    m_fileValid = std::min(m_fileValid, from);
}

void CategoryFileWriter::Drop() {
    if (m_spareFd >= 0)
        ::close(m_spareFd);
    if (!m_spareName.isEmpty())
        ::unlink(m_spareName.constData());
    m_spareFd = -1;
    m_spareName.clear();
    m_spareValid = 0;
    m_fileValid = 0;
    m_fileDevice = 0;
    m_fileInode = 0;
}

bool CategoryFileWriter::CreateSpare(const QByteArray& target) {
    QByteArray name = target + TemporaryInfix.toLatin1() + QByteArray(TemporarySuffixLength, 'X');
    const int fd = ::mkostemp(name.data(), O_CLOEXEC);
    if (fd < 0)
        return false;
    struct stat former {};
    const mode_t mode = ::stat(target.constData(), &former) == 0 ? (former.st_mode & 07777) : 0644;
    if (::fchmod(fd, mode) != 0) {
        ::close(fd);
        ::unlink(name.constData());
        return false;
    }
    m_spareFd = fd;
    m_spareName = name;
    m_spareValid = 0;
    return true;
}

bool CategoryFileWriter::WriteOnce(const QByteArray& target, const QByteArray& bytes, bool& spareVanished) {
    if (m_spareFd < 0 && !CreateSpare(target))
        return false;
    if (!WriteAllAt(m_spareFd, bytes, m_spareValid) || ::ftruncate(m_spareFd, off_t(bytes.size())) != 0) {
        Drop();
        return false;
    }
    m_spareValid = bytes.size();

    // The file in place becomes the next temporary file, but only one this writer put there and
    // that has no other name: a file the user linked elsewhere is never written into.
    QByteArray keptName;
    struct stat current {};
    if (::lstat(target.constData(), &current) == 0 && S_ISREG(current.st_mode) && current.st_nlink == 1 &&
        current.st_dev == m_fileDevice && current.st_ino == m_fileInode)
        keptName = LinkUnderTemporaryName(target);

    if (::rename(m_spareName.constData(), target.constData()) != 0) {
        spareVanished = errno == ENOENT;
        if (!keptName.isEmpty())
            ::unlink(keptName.constData());
        Drop();
        return false;
    }
    struct stat placed {};
    ::fstat(m_spareFd, &placed);
    ::close(m_spareFd);
    m_spareFd = -1;
    m_spareName.clear();

    if (!keptName.isEmpty()) {
        const int fd = ::open(keptName.constData(), O_RDWR | O_CLOEXEC);
        struct stat kept {};
        if (fd >= 0 && ::fstat(fd, &kept) == 0 && kept.st_dev == m_fileDevice && kept.st_ino == m_fileInode) {
            m_spareFd = fd;
            m_spareName = keptName;
            m_spareValid = m_fileValid;
        } else {
            if (fd >= 0)
                ::close(fd);
            ::unlink(keptName.constData());
        }
    }
    m_fileDevice = placed.st_dev;
    m_fileInode = placed.st_ino;
    m_fileValid = bytes.size();
    return true;
}

bool CategoryFileWriter::Write(const QString& target, const QByteArray& bytes) {
    const QByteArray name = QFile::encodeName(target);
    if (name != m_target) {
        Drop();
        m_target = name;
    }
    bool spareVanished = false;
    if (WriteOnce(name, bytes, spareVanished))
        return true;
    // Another process's open took our temporary file for a stale one: once more with a fresh one.
    return spareVanished && WriteOnce(name, bytes, spareVanished);
}
