#include "modXML.h"

#include "platform/HostHooks.h"

#include <QByteArray>
#include <QElapsedTimer>
#include <QFile>
#include <QFileInfo>
#include <cerrno>
#include <cstdlib>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

CategoryStoreRecord CategoryStore;

namespace {

std::int32_t saveCount = 0;
std::int64_t saveNanoseconds = 0;

// Keeps comments and stray instructions of a hand-edited file, and the white space between
// elements. The "xml" declaration itself is not kept: every save writes ours.
constexpr unsigned LoadOptions =
    pugi::parse_default | pugi::parse_pi | pugi::parse_comments | pugi::parse_ws_pcdata;

class ByteWriter final : public pugi::xml_writer {
public:
    void write(const void* data, size_t size) override {
        m_bytes.append(static_cast<const char*>(data), qsizetype(size));
    }
    QByteArray m_bytes;
};

QByteArray Utf8(const QString& text) {
    return text.toUtf8();
}

// Writes every byte, or reports that it could not: a full disk or a file size limit shows up
// as a short write that must not be taken for success.
bool WriteAll(int fd, const QByteArray& bytes) {
    const char* data = bytes.constData();
    qsizetype left = bytes.size();
    while (left > 0) {
        const ssize_t written = ::write(fd, data, size_t(left));
        if (written < 0 && errno == EINTR)
            continue;
        if (written <= 0)
            return false;
        data += written;
        left -= written;
    }
    return true;
}

// The whole document goes to a temporary file in the same folder, then is renamed over the old one:
// the file on disk is always either the former or the new document, whether the process is killed
// mid-save or the disk fills up. There is no flush to the platter after each find: a refresh saves
// thousands of times and the flush would be nearly all of its time; a power cut loses at most the
// finds since the system last wrote its cache, never the file.
bool WriteDocument(const pugi::xml_document& document, const QString& path) {
    ByteWriter writer;
    document.save(writer, "", pugi::format_raw | pugi::format_no_declaration, pugi::encoding_latin1);

    const QByteArray target = QFile::encodeName(path);
    QByteArray temporary = target + ".XXXXXX";
    const int fd = ::mkstemp(temporary.data());
    if (fd < 0)
        return false;
    struct stat former {};
    const mode_t mode = ::stat(target.constData(), &former) == 0 ? (former.st_mode & 07777) : 0644;
    bool written = ::fchmod(fd, mode) == 0 && WriteAll(fd, writer.m_bytes);
    written = (::close(fd) == 0) && written;
    if (!written || ::rename(temporary.constData(), target.constData()) != 0) {
        ::unlink(temporary.constData());
        return false;
    }
    ++saveCount;
    return true;
}

// Every save is timed, so that a benchmark can tell the crawl's saving from its loading.
bool SaveDocument(const pugi::xml_document& document, const QString& path) {
    QElapsedTimer timer;
    timer.start();
    const bool saved = WriteDocument(document, path);
    saveNanoseconds += timer.nsecsElapsed();
    return saved;
}

void Save() {
    // Nothing reads a result from the changing operations; a refused save leaves the former file
    // whole, and the next successful save writes everything in memory.
    if (CategoryStore.XmlDocument)
        SaveDocument(*CategoryStore.XmlDocument, CategoryStore.CategoryFilePath);
}

// A file that does not load is the user's catalogue all the same: it is renamed aside, under the
// first free name, before the empty document takes its place.
bool KeepAside(const QString& path) {
    QString aside = path + QStringLiteral(".unreadable");
    for (int n = 1; QFileInfo::exists(aside) || QFileInfo(aside).isSymLink(); ++n)
        aside = path + QStringLiteral(".unreadable.") + QString::number(n);
    return QFile::rename(path, aside);
}

bool HasSingleRoot(const pugi::xml_document& document) {
    int elements = 0;
    for (pugi::xml_node child = document.first_child(); child; child = child.next_sibling())
        if (child.type() == pugi::node_element)
            ++elements;
    return elements == 1;
}

void AppendCData(pugi::xml_node parent, const QString& text, bool isUrl) {
    parent.append_child(pugi::node_cdata).set_value(Utf8(CategoryFileText(text, isUrl)).constData());
}

} // namespace

// "]]>" would end a CDATA section. Split over two sections, it would put a second node before
// SubURL and shift the reader's positions, so the text is changed instead: in a URL the ">" is
// written percent-encoded, "]]%3E", the same address as a browser sends it; in a name a blank is
// put between, "]] >". Either way the entry stays one CDATA section and reads back as one entry.
QString CategoryFileText(const QString& text, bool isUrl) {
    QString out;
    out.reserve(text.size());
    for (const char32_t ch : text.toUcs4())
        out.append(ch <= 0xFF ? QChar(char16_t(ch)) : QLatin1Char('?'));
    out.replace(QStringLiteral("]]>"), isUrl ? QStringLiteral("]]%3E") : QStringLiteral("]] >"));
    return out;
}

pugi::xml_node NextInDocumentOrder(const pugi::xml_node& node, const pugi::xml_node& top) {
    if (node.first_child())
        return node.first_child();
    // Without recursion: a hand-made file may nest deeper than the stack would bear.
    for (pugi::xml_node up = node; up && up != top; up = up.parent())
        if (up.next_sibling())
            return up.next_sibling();
    return pugi::xml_node();
}

QString CategoryNodeText(const pugi::xml_node& node) {
    if (node.type() == pugi::node_cdata || node.type() == pugi::node_pcdata)
        return QString::fromUtf8(node.value());
    QByteArray text;
    for (pugi::xml_node inner = NextInDocumentOrder(node, node); inner;
         inner = NextInDocumentOrder(inner, node))
        if (inner.type() == pugi::node_cdata || inner.type() == pugi::node_pcdata)
            text.append(inner.value());
    return QString::fromUtf8(text);
}

bool OpenCategoryFile(const QString& path, const QString& rootName) {
    CategoryStore.XmlDocument = std::make_unique<pugi::xml_document>();
    CategoryStore.RootElement = pugi::xml_node();
    CategoryStore.CurrentMainElement = pugi::xml_node();
    pugi::xml_document& document = *CategoryStore.XmlDocument;

    const QFileInfo info(path);
    bool loaded = false;
    if (info.exists() && info.isFile()) {
        QFile file(path);
        if (file.open(QIODevice::ReadOnly)) {
            const QByteArray bytes = file.readAll();
            const pugi::xml_parse_result result = document.load_buffer(
                bytes.constData(), size_t(bytes.size()), LoadOptions, pugi::encoding_auto);
            loaded = result && HasSingleRoot(document);
        }
        if (!loaded && !KeepAside(path))
            return false;
    } else if (info.exists()) {
        // A folder or a device in the file's place: it is not ours to move.
        return false;
    }

    if (!loaded) {
        document.reset();
        document.append_child(pugi::node_element).set_name(Utf8(rootName).constData());
    }
    pugi::xml_node declaration = document.prepend_child(pugi::node_pi);
    declaration.set_name("xml");
    declaration.set_value(CategoryFileDeclaration);
    CategoryStore.RootElement = document.document_element();

    return SaveDocument(document, path);
}

void AddMainCategory(const QString& name, const QString& url) {
    if (!CategoryStore.XmlDocument || !CategoryStore.RootElement)
        return;
    pugi::xml_node site = CategoryStore.RootElement.append_child(pugi::node_element);
    site.set_name(Utf8(Hooks().SiteLabel()).constData());
    CategoryStore.CurrentMainElement = site;
    AppendCData(site.append_child("MainItem"), name, false);
    AppendCData(site.append_child("MainURL"), url, true);
    Save();
}

void AddSubCategory(const QString& name, const QString& url) {
    // Without a site element of this document there is nothing to hang the entry under.
    if (!CategoryStore.XmlDocument || !CategoryStore.CurrentMainElement)
        return;
    pugi::xml_node item = CategoryStore.CurrentMainElement.append_child("SubItem");
    AppendCData(item, name, false);
    AppendCData(item.append_child("SubURL"), url, true);
    Save();
}

void RemoveSiteCategories(const QString& siteLabel) {
    if (!CategoryStore.XmlDocument)
        return;
    pugi::xml_document& document = *CategoryStore.XmlDocument;
    const QByteArray expression = Utf8(QStringLiteral("//Categories/") + siteLabel);
    auto selectSingleNode = [&]() -> pugi::xml_node {
        try {
            return document.select_node(expression.constData()).node();
        } catch (const pugi::xpath_exception&) {
            // A label that is no element name matches nothing.
            return pugi::xml_node();
        }
    };
    for (pugi::xml_node node = selectSingleNode(); node; node = selectSingleNode()) {
        if (node == CategoryStore.CurrentMainElement)
            CategoryStore.CurrentMainElement = pugi::xml_node();
        node.parent().remove_child(node);
        Save();
    }
    Save();
}

void ReleaseCategoryFile() {
    CategoryStore.CurrentMainElement = pugi::xml_node();
    CategoryStore.RootElement = pugi::xml_node();
    CategoryStore.XmlDocument.reset();
}

bool SaveCategoryFile() {
    return CategoryStore.XmlDocument &&
           SaveDocument(*CategoryStore.XmlDocument, CategoryStore.CategoryFilePath);
}

std::int64_t CategoryFileSaveNanoseconds() {
    return saveNanoseconds;
}

std::int32_t CategoryFileSaveCount() {
    return saveCount;
}
