#include "modXML.h"

#include "catalogue/CategoryFileWriter.h"
#include "platform/HostHooks.h"

#include <QElapsedTimer>
#include <QFile>
#include <QFileInfo>
#include <algorithm>
#include <climits>
#include <cstring>
#include <libxml/parser.h>
#include <libxml/tree.h>
#include <unistd.h>
#include <utility>
#include <vector>

CategoryStoreRecord CategoryStore;

namespace {

std::int32_t saveCount = 0;
std::int64_t saveNanoseconds = 0;
std::function<void()> saveObserver;
bool readOnly = false;
CategoryFileWriter writer;

// The bytes of the open document as last saved, so that a find adds its own few bytes to them
// instead of the whole document being serialised again for each save.
struct Serialised {
    QByteArray bytes;
    const pugi::xml_document* document = nullptr;
    // The bytes from the root's end tag to the end of the file; -1 while the root is written empty.
    qsizetype rootTail = -1;
};
Serialised serialised;

class ByteWriter final : public pugi::xml_writer {
public:
    void write(const void* data, size_t size) override {
        m_bytes.append(static_cast<const char*>(data), qsizetype(size));
    }
    QByteArray m_bytes;
};

constexpr unsigned SaveFormat = pugi::format_raw | pugi::format_no_declaration;

QByteArray Utf8(const QString& text) {
    return text.toUtf8();
}

QByteArray Serialise(const pugi::xml_node& node) {
    ByteWriter out;
    node.print(out, "", SaveFormat, pugi::encoding_latin1);
    return out.m_bytes;
}

QByteArray EndTag(const pugi::xml_node& element) {
    return "</" + QString::fromUtf8(element.name()).toLatin1() + '>';
}

qsizetype RootTailLength(const pugi::xml_document& document, const QByteArray& bytes) {
    const pugi::xml_node root = document.document_element();
    if (!root.first_child())
        return -1;
    QByteArray tail = EndTag(root);
    for (pugi::xml_node after = root.next_sibling(); after; after = after.next_sibling())
        tail += Serialise(after);
    return bytes.endsWith(tail) ? tail.size() : -1;
}

void Reserialise(const pugi::xml_document& document) {
    QByteArray bytes = SerializeCategoryDocument(document);
    const QByteArray& former = serialised.document == &document ? serialised.bytes : QByteArray();
    const qsizetype common = std::min(former.size(), bytes.size());
    const auto differ = std::mismatch(former.cbegin(), former.cbegin() + common, bytes.cbegin()).first;
    writer.NoteChange(differ - former.cbegin());
    serialised.rootTail = RootTailLength(document, bytes);
    serialised.bytes = std::move(bytes);
    serialised.document = &document;
}

// node has just become the last child of the root, or of the root's last child.
void NoteAppended(const pugi::xml_node& node) {
    const pugi::xml_document& document = *CategoryStore.XmlDocument;
    const pugi::xml_node root = document.document_element();
    if (serialised.document == &document && serialised.rootTail >= 0) {
        qsizetype at = serialised.bytes.size() - serialised.rootTail;
        bool fits = node.parent() == root;
        if (!fits && node.parent() == root.last_child()) {
            const QByteArray endTag = EndTag(node.parent());
            at -= endTag.size();
            fits = at >= 0 && QByteArrayView(serialised.bytes).sliced(at, endTag.size()) == endTag;
        }
        if (fits) {
            serialised.bytes.insert(at, Serialise(node));
            writer.NoteChange(at);
            return;
        }
    }
    Reserialise(document);
}

bool WriteSerialised(const QString& path) {
    if (readOnly)
        return false;
    QElapsedTimer timer;
    timer.start();
    const bool saved = writer.Write(ResolveFileLinks(path), serialised.bytes);
    saveNanoseconds += timer.nsecsElapsed();
    if (saved) {
        ++saveCount;
        if (saveObserver)
            saveObserver();
    }
    return saved;
}

// The changing operations save to CategoryFilePath; a refused save leaves the former file whole.
bool Save() {
    return CategoryStore.XmlDocument && WriteSerialised(CategoryStore.CategoryFilePath);
}

// A failed save takes its find out again, so that memory never holds more than the disk.
bool SaveOrUndo(pugi::xml_node added) {
    if (Save())
        return true;
    if (added == CategoryStore.CurrentMainElement)
        CategoryStore.CurrentMainElement = pugi::xml_node();
    added.parent().remove_child(added);
    Reserialise(*CategoryStore.XmlDocument);
    return false;
}

// A file that does not load is the user's catalogue all the same: it is renamed aside, under the
// first free name, before the empty document takes its place.
bool KeepAside(const QString& path) {
    QString aside = path + QStringLiteral(".unreadable");
    for (int n = 1; QFileInfo::exists(aside) || QFileInfo(aside).isSymLink(); ++n)
        aside = path + QStringLiteral(".unreadable.") + QString::number(n);
    return QFile::rename(path, aside);
}

QString LibxmlText(const xmlNode* node) {
    xmlChar* content = xmlNodeGetContent(node);
    const QString text = QString::fromUtf8(reinterpret_cast<const char*>(content));
    xmlFree(content);
    return text;
}

QByteArray QualifiedName(const xmlNs* ns, const xmlChar* name) {
    const QByteArray local(reinterpret_cast<const char*>(name));
    return ns && ns->prefix ? QByteArray(reinterpret_cast<const char*>(ns->prefix)) + ':' + local : local;
}

bool IsUrlElement(const pugi::xml_node& element) {
    return std::strcmp(element.name(), "MainURL") == 0 || std::strcmp(element.name(), "SubURL") == 0;
}

// A file in another encoding may hold characters that the file's own encoding lacks. Saving turns
// them into "?", which a name may bear but an address may not: a URL keeps them percent-encoded.
QByteArray InLatin1File(const char* text, const pugi::xml_node& parent) {
    const QByteArray bytes(text);
    // UTF-8 writes every character beyond U+00FF with a lead byte of 0xC4 or more.
    const bool beyond = std::any_of(bytes.cbegin(), bytes.cend(), [](char c) { return uchar(c) >= 0xC4; });
    return beyond && IsUrlElement(parent) ? Utf8(CategoryFileText(QString::fromUtf8(bytes), true)) : bytes;
}

void CopyElementHead(const xmlNode* from, pugi::xml_node to) {
    to.set_name(QualifiedName(from->ns, from->name).constData());
    for (const xmlNs* ns = from->nsDef; ns; ns = ns->next) {
        const QByteArray name = ns->prefix ? "xmlns:" + QByteArray(reinterpret_cast<const char*>(ns->prefix))
                                           : QByteArray("xmlns");
        to.append_attribute(name.constData()).set_value(reinterpret_cast<const char*>(ns->href));
    }
    for (const xmlAttr* attribute = from->properties; attribute; attribute = attribute->next)
        to.append_attribute(QualifiedName(attribute->ns, attribute->name).constData())
            .set_value(Utf8(LibxmlText(reinterpret_cast<const xmlNode*>(attribute))).constData());
}

// libxml2's tree of the file, node for node, into the pugixml document (which keeps CDATA sections
// and white space as they are, and writes the file). Without recursion: files may nest deeply.
void CopyTree(const xmlDoc* from, pugi::xml_document& to) {
    std::vector<std::pair<const xmlNode*, pugi::xml_node>> pending{{from->children, to}};
    while (!pending.empty()) {
        auto [node, parent] = pending.back();
        pending.pop_back();
        for (; node; node = node->next) {
            const char* content = reinterpret_cast<const char*>(node->content);
            switch (node->type) {
            case XML_ELEMENT_NODE: {
                pugi::xml_node element = parent.append_child(pugi::node_element);
                CopyElementHead(node, element);
                // The element's children go before its next sibling's: the rest of this list waits.
                pending.emplace_back(node->next, parent);
                pending.emplace_back(node->children, element);
                node = nullptr;
                break;
            }
            case XML_TEXT_NODE:
            case XML_CDATA_SECTION_NODE:
                parent.append_child(node->type == XML_TEXT_NODE ? pugi::node_pcdata : pugi::node_cdata)
                    .set_value(InLatin1File(content, parent).constData());
                break;
            case XML_COMMENT_NODE:
                parent.append_child(pugi::node_comment).set_value(content);
                break;
            case XML_PI_NODE: {
                pugi::xml_node instruction = parent.append_child(pugi::node_pi);
                instruction.set_name(reinterpret_cast<const char*>(node->name));
                instruction.set_value(content ? content : "");
                break;
            }
            case XML_ENTITY_REF_NODE:
                parent.append_child(pugi::node_pcdata).set_value(Utf8(LibxmlText(node)).constData());
                break;
            default:
                break;
            }
            if (!node)
                break;
        }
    }
}

// Reads the file as XML requires: by the encoding its declaration names (or its byte order mark),
// and only when well-formed. Text after the root, an undefined entity, a byte that the declared
// encoding does not have: the file does not load. Nothing is fetched, nothing reaches standard error.
bool LoadDocument(const QByteArray& bytes, pugi::xml_document& document) {
    xmlParserCtxtPtr context = bytes.size() < INT_MAX ? xmlNewParserCtxt() : nullptr;
    if (!context)
        return false;
    xmlDocPtr parsed = xmlCtxtReadMemory(context, bytes.constData(), int(bytes.size()), nullptr, nullptr,
                                         XML_PARSE_NONET | XML_PARSE_NOERROR | XML_PARSE_NOWARNING);
    const bool loaded = parsed && context->wellFormed && xmlDocGetRootElement(parsed);
    if (loaded)
        CopyTree(parsed, document);
    xmlFreeDoc(parsed);
    xmlFreeParserCtxt(context);
    return loaded;
}

void ForgetDocument() {
    writer.Drop();
    serialised = Serialised();
    readOnly = false;
    CategoryStore.RootElement = pugi::xml_node();
    CategoryStore.CurrentMainElement = pugi::xml_node();
}

void AppendCData(pugi::xml_node parent, const QString& text, bool isUrl) {
    parent.append_child(pugi::node_cdata).set_value(Utf8(CategoryFileText(text, isUrl)).constData());
}

} // namespace

// "]]>" would end a CDATA section. Split over two sections, it would put a second node before
// SubURL and shift the reader's positions, so the text is changed instead: in a URL the ">" is
// written percent-encoded, "]]%3E", the same address as a browser sends it; in a name a blank is
// put between, "]] >". Either way the entry stays one CDATA section and reads back as one entry.
// A URL's character beyond ISO-8859-1 is percent-encoded as a browser sends it (its UTF-8 bytes),
// so that the address stays the page's; only a name loses such a character to "?".
QString CategoryFileText(const QString& text, bool isUrl) {
    QString out;
    out.reserve(text.size());
    for (const char32_t ch : text.toUcs4()) {
        if (ch <= 0xFF)
            out.append(QChar(char16_t(ch)));
        else if (isUrl)
            out.append(QString::fromLatin1(QString::fromUcs4(&ch, 1).toUtf8().toPercentEncoding()));
        else
            out.append(QLatin1Char('?'));
    }
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

QByteArray SerializeCategoryDocument(const pugi::xml_document& document) {
    ByteWriter out;
    document.save(out, "", SaveFormat, pugi::encoding_latin1);
    return out.m_bytes;
}

// Every open rewrites the file, and a failed rewrite fails the open, with two exceptions that keep
// a user's file out of harm: a file that cannot be read is left alone (and the open fails), and a
// file that can be read but not written is opened as it is, without the rewrite, since only a
// refresh needs to change it.
bool OpenCategoryFile(const QString& path, const QString& rootName) {
    ForgetDocument();
    CategoryStore.XmlDocument = std::make_unique<pugi::xml_document>();
    pugi::xml_document& document = *CategoryStore.XmlDocument;

    const QString target = ResolveFileLinks(path);
    RemoveStaleTemporaryFiles(target);
    const QFileInfo info(target);
    bool loaded = false;
    if (info.exists()) {
        // A folder or a device in the file's place is not ours to move.
        if (!info.isFile())
            return false;
        QFile file(target);
        if (!file.open(QIODevice::ReadOnly))
            return false;
        loaded = LoadDocument(file.readAll(), document);
        if (::access(QFile::encodeName(target).constData(), W_OK) != 0) {
            if (!loaded)
                return false;
            readOnly = true;
        } else if (!loaded && !KeepAside(target)) {
            return false;
        }
    }

    // A file that did not load has left nothing in the document: the reader copies only a whole tree.
    if (!loaded)
        document.append_child(pugi::node_element).set_name(Utf8(rootName).constData());
    pugi::xml_node declaration = document.prepend_child(pugi::node_pi);
    declaration.set_name("xml");
    declaration.set_value(CategoryFileDeclaration);
    CategoryStore.RootElement = document.document_element();
    if (readOnly)
        return true;
    Reserialise(document);
    return WriteSerialised(path);
}

bool AddMainCategory(const QString& name, const QString& url) {
    if (!CategoryStore.XmlDocument || !CategoryStore.RootElement)
        return false;
    pugi::xml_node site = CategoryStore.RootElement.append_child(pugi::node_element);
    site.set_name(Utf8(Hooks().SiteLabel()).constData());
    CategoryStore.CurrentMainElement = site;
    AppendCData(site.append_child("MainItem"), name, false);
    AppendCData(site.append_child("MainURL"), url, true);
    NoteAppended(site);
    return SaveOrUndo(site);
}

bool AddSubCategory(const QString& name, const QString& url) {
    // Without a site element of this document there is nothing to hang the entry under.
    if (!CategoryStore.XmlDocument || !CategoryStore.CurrentMainElement)
        return false;
    pugi::xml_node item = CategoryStore.CurrentMainElement.append_child("SubItem");
    AppendCData(item, name, false);
    AppendCData(item.append_child("SubURL"), url, true);
    NoteAppended(item);
    return SaveOrUndo(item);
}

bool RemoveSiteCategories(const QString& siteLabel) {
    if (!CategoryStore.XmlDocument)
        return false;
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
    bool saved = true;
    for (pugi::xml_node node = selectSingleNode(); node; node = selectSingleNode()) {
        if (node == CategoryStore.CurrentMainElement)
            CategoryStore.CurrentMainElement = pugi::xml_node();
        node.parent().remove_child(node);
        Reserialise(document);
        saved = Save() && saved;
    }
    Reserialise(document);
    return Save() && saved;
}

void ReleaseCategoryFile() {
    ForgetDocument();
    CategoryStore.XmlDocument.reset();
}

void AdoptCategoryDocument(std::unique_ptr<pugi::xml_document> document) {
    const bool wasReadOnly = readOnly;
    ForgetDocument();
    readOnly = wasReadOnly;
    CategoryStore.XmlDocument = std::move(document);
    if (CategoryStore.XmlDocument)
        CategoryStore.RootElement = CategoryStore.XmlDocument->document_element();
}

bool SaveCategoryFile() {
    if (!CategoryStore.XmlDocument)
        return false;
    Reserialise(*CategoryStore.XmlDocument);
    return Save();
}

bool CategoryFileIsReadOnly() {
    return CategoryStore.XmlDocument && readOnly;
}

void SetCategorySaveObserver(std::function<void()> observer) {
    saveObserver = std::move(observer);
}

std::int64_t CategoryFileSaveNanoseconds() {
    return saveNanoseconds;
}

std::int32_t CategoryFileSaveCount() {
    return saveCount;
}
