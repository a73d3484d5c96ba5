#pragma once

#include <QByteArray>
#include <QString>
#include <cstdint>
#include <functional>
#include <memory>
#include <pugixml.hpp>

// The category file in memory: the one record of the process that the catalogue reads and writes.
struct CategoryStoreRecord {
    QString CategoryFilePath;
    // Null when released.
    std::unique_ptr<pugi::xml_document> XmlDocument;
    pugi::xml_node RootElement;
    // The site element of the latest AddMainCategory on this document.
    pugi::xml_node CurrentMainElement;
};

extern CategoryStoreRecord CategoryStore;

// The data of the file's first node, the instruction with target "xml", kept to the byte.
inline const char* const CategoryFileDeclaration = "version=\"1.0\" encoding= \"ISO-8859-1\"";

// Loads path (or starts an empty document with rootName when there is none or it does not load)
// and writes it back. A file that is there but does not load is first renamed aside. False when
// the file could not be read, or could not be written back.
// The rewrite needs write access; a file the user may read but not write is opened without it, so
// that the tree and a search work on it (CategoryFileIsReadOnly() then tells, and no save happens).
// A file that is a symbolic link is read and written through the link.
bool OpenCategoryFile(const QString& path, const QString& rootName);
// Appends a site element tagged Hooks().SiteLabel() and saves. False when the save failed: the
// element is taken out again, so that the document holds what the disk holds.
bool AddMainCategory(const QString& name, const QString& url);
// Appends a SubItem to the latest site element and saves; false, and nothing added, as above.
bool AddSubCategory(const QString& name, const QString& url);
// Removes every site element tagged siteLabel under the root, saving after each, then once more.
// False when any of those saves failed.
bool RemoveSiteCategories(const QString& siteLabel);
// Drops the document; the file on disk stays as last saved.
void ReleaseCategoryFile();
// Puts document in the place of the open one, to be written by the next save.
void AdoptCategoryDocument(std::unique_ptr<pugi::xml_document> document);

// Writes the open document to CategoryFilePath now; false when none is open or the write failed.
bool SaveCategoryFile();
// Whether the open document came from a file the user cannot write.
bool CategoryFileIsReadOnly();

// The document's bytes as a save writes them whole.
QByteArray SerializeCategoryDocument(const pugi::xml_document& document);
// Called after every save that reached the disk (tests compare the file with the document).
void SetCategorySaveObserver(std::function<void()> observer);

// Saves that reached the disk since the process started.
std::int32_t CategoryFileSaveCount();
// Time spent in saves since the process started, failed ones included, in nanoseconds.
std::int64_t CategoryFileSaveNanoseconds();

// The text as the file holds it: what ISO-8859-1 lacks becomes "?" in a name and is
// percent-encoded in a URL, and "]]>" is broken up so that the text stays one CDATA section.
QString CategoryFileText(const QString& text, bool isUrl);

// The node after node in document order, staying inside top; null at the end.
pugi::xml_node NextInDocumentOrder(const pugi::xml_node& node, const pugi::xml_node& top);

// The text of an element's CDATA sections and text nodes, or of a text node itself.
QString CategoryNodeText(const pugi::xml_node& node);
