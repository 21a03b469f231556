#include "sigweave/persistence/XmlRecord.h"

#include <algorithm>
#include <cerrno>
#include <deque>
#include <filesystem>

#include "sigweave/persistence/TCXML.h"
#include "sigweave/persistence/XmlBuilder.h"
#include "sigweave/persistence/XmlFile.h"
#include "sigweave/persistence/XmlMessages.h"
#include "sigweave/persistence/XmlTree.h"
#include "sigweave/persistence/XmlWriter.h"
#include "sigweave/platform/OutputFile.h"
#include "sigweave/platform/PathText.h"
#include "sigweave/platform/SystemError.h"
#include "sigweave/services/Bilingual.h"

namespace tc {
namespace {

std::string Reason() {
    static constexpr Bilingual IS_WRITTEN("it is being written", "sie wird gerade geschrieben");
    return errno == EWOULDBLOCK ? IS_WRITTEN.Text() : LastSystemErrorText();
}

// Around what stands behind the document while it is written.
constexpr std::string_view HIDE = "<?part ", SHOW = "<?part?>";

// The root element, or null when some of it would be lost: its texts and the prefixes that it declares.
const xmlNode* RootToAppend(TCXML& part) {
    const xmlNode* const document = XmlAccess::Node(part.GetDocument());
    const xmlNode* const root = document != nullptr ? xmlDocGetRootElement(document->doc) : nullptr;
    if (root == nullptr || root->nsDef != nullptr || IsBeyondLimits(root, 1)) return nullptr;
    for (const xmlNode* node = root->children; node != nullptr; node = node->next)
        if (HoldsText(node)) return nullptr;
    return root;
}

}  // namespace

// --- Writing

struct XmlRecordWriter::Impl {
    bool Append(std::string_view text, std::string& error);
    bool AppendHidden(std::string_view text);

    std::unique_ptr<OutputFile> file;
    std::string root;
    // Where the next part begins, and what stands there as long as none follows.
    std::int64_t end = 0;
    std::string closing;
};

// A process that is killed while it writes leaves the pages that were written. So room is made first, by
// blanks, which may follow a document; then an instruction spans them, in which anything may be written. The
// beginning of the part replaces the closing tag and the beginning of the instruction at once.
bool XmlRecordWriter::Impl::AppendHidden(std::string_view text) {
    const auto size = static_cast<std::int64_t>(text.size()),
               kept = static_cast<std::int64_t>(closing.size());
    const std::size_t head = closing.size() + HIDE.size();
    const std::string room = std::string(text.size() - closing.size(), ' ').append(SHOW);
    return file->WriteAt(end + kept, room) && file->WriteAt(end + kept, HIDE) &&
           file->WriteAt(end + static_cast<std::int64_t>(head), text.substr(head)) &&
           file->WriteAt(end, text.substr(0, head)) && file->Shrink(end + size);
}

// Where the text would end the instruction, or is too short for it, it is written as it is.
bool XmlRecordWriter::Impl::Append(std::string_view text, std::string& error) {
    const bool canHide =
        text.size() > closing.size() + HIDE.size() && text.find("?>") == std::string_view::npos;
    if (canHide ? AppendHidden(text) : file->WriteAt(end, text)) return true;
    error = Reason();
    // The parts before this one stay a whole document.
    file->WriteAt(end, closing);
    file->Shrink(end + static_cast<std::int64_t>(closing.size()));
    return false;
}

XmlRecordWriter::XmlRecordWriter() = default;
XmlRecordWriter::~XmlRecordWriter() = default;

namespace {

// An earlier file loses its name and keeps its content, for somebody may be reading it; one that is being
// written, or that may not be, stays.
bool MakeWay(const std::string& path) {
    namespace fs = std::filesystem;
    std::error_code error;
    if (!fs::is_regular_file(path, error)) return true;
    if (OutputFile::Open(path.c_str(), true) == nullptr) return false;
    return fs::remove(fs::canonical(path, error), error);
}

}  // namespace

bool XmlRecordWriter::Open(const char* path, const char* root) {
    impl = nullptr;
    error.clear();
    PrepareXmlEngine();
    if (root == nullptr || xmlValidateNCName(XmlChars(root), 0) != 0) {
        error = FormatXmlMessage(NO_ELEMENT, root != nullptr ? root : "");
        return false;
    }
    const std::string native = NativePath(path);
    std::unique_ptr<OutputFile> file;
    if (MakeWay(native)) file = OutputFile::Open(native.c_str(), false);
    if (file == nullptr) {
        error = FormatXmlMessage(NOT_OPENED, path != nullptr ? path : "", Reason().c_str());
        return false;
    }
    const std::string declaration(XmlWriter::DECLARATION);
    auto opened = std::make_unique<Impl>(std::move(file), root, static_cast<std::int64_t>(declaration.size()),
                                         '<' + std::string(root) + "/>\n");
    if (!opened->file->WriteAt(0, declaration + opened->closing)) {
        error = Reason();
        return false;
    }
    impl = std::move(opened);
    return true;
}

bool XmlRecordWriter::Append(TCXML& part) {
    error.clear();
    const xmlNode* const root = impl != nullptr ? RootToAppend(part) : nullptr;
    if (root == nullptr) {
        error = FormatXmlMessage(NOT_SAVED);
        return false;
    }
    if (root->children == nullptr) return true;
    XmlWriter writer;
    const std::string opening = '<' + impl->root + '>', closing = "\n</" + impl->root + ">\n";
    if (impl->closing != closing) writer.Raw(opening);
    for (const xmlNode* node = root->children; node != nullptr; node = node->next) {
        writer.NewLine(1);
        writer.Node(node, 1);
    }
    const auto size = static_cast<std::int64_t>(writer.Text().size());
    writer.Raw(closing);
    if (!impl->Append(writer.Text(), error)) return false;
    impl->end += size;
    impl->closing = closing;
    return true;
}

bool XmlRecordWriter::Close() {
    error.clear();
    if (impl == nullptr) return true;
    const bool closed = impl->file->Close();
    if (!closed) error = Reason();
    impl = nullptr;
    return closed;
}

// --- Reading

namespace {

// The tree at the end of the file, or null and why there is none.
xmlDoc* FinishTree(std::FILE& file, XmlBuilder& builder, std::string& error) {
    if (std::ferror(&file) != 0) {
        error = FormatXmlMessage(NOT_LOADED, Reason().c_str());
        return nullptr;
    }
    xmlDoc* const tree = builder.Finish();
    if (tree == nullptr) error = FormatXmlMessage(builder.GetError());
    return tree;
}

}  // namespace

struct XmlRecordReader::Impl {
    ~Impl();
    void Take(xmlNode* child);
    std::shared_ptr<XmlDocument> NextPart();

    XmlFile file;
    XmlBuilder builder{false};
    // What is complete but was not asked for, and the root that it stood in.
    std::deque<xmlNode*> children;
    xmlNode* root = nullptr;
    xmlDoc* rest = nullptr;
    // What `Next` answers once the parts are used up; 1 as long as more may come.
    int end = 1;
};

XmlRecordReader::Impl::~Impl() {
    for (xmlNode* child : children) xmlFreeNode(child);
    xmlFreeDoc(rest);
}

// Whatever else stands below the root is dropped, so that the tree does not grow.
void XmlRecordReader::Impl::Take(xmlNode* child) {
    root = child->parent;
    xmlUnlinkNode(child);
    children.push_back(child);
    while (root->children != nullptr) {
        xmlNode* const dropped = root->children;
        xmlUnlinkNode(dropped);
        xmlFreeNode(dropped);
    }
}

// The next child as a document of its own. Made only now: a copy of the root for each child that waits could
// be far more than the file.
std::shared_ptr<XmlDocument> XmlRecordReader::Impl::NextPart() {
    xmlDoc* const tree = xmlNewDoc(XmlChars("1.0"));
    if (tree == nullptr) throw std::bad_alloc();
    auto part = std::make_shared<XmlDocument>(tree);
    tree->dict = root->doc->dict;
    xmlDictReference(tree->dict);
    xmlNode* const newRoot = xmlDocCopyNode(root, tree, 2);
    if (newRoot == nullptr) throw std::bad_alloc();
    xmlDocSetRootElement(tree, newRoot);
    xmlAddChild(newRoot, children.front());
    // Namespaces of the old tree, also that of the prefix xml, do not outlive it.
    xmlReconciliateNs(tree, children.front());
    children.pop_front();
    return part;
}

XmlRecordReader::XmlRecordReader() = default;
XmlRecordReader::~XmlRecordReader() = default;

bool XmlRecordReader::Open(const char* path, const char* root) {
    impl = nullptr;
    error.clear();
    XmlFile file = OpenXmlFile(path, "rb");
    if (file == nullptr) {
        error = FormatXmlMessage(NOT_LOADED, Reason().c_str());
        return false;
    }
    auto opened = std::make_unique<Impl>();
    opened->file = std::move(file);
    opened->builder.onChild = [&state = *opened](xmlNode* child) { state.Take(child); };
    while (opened->builder.RootName().empty() && opened->builder.FeedFrom(*opened->file)) {
    }
    std::string name(opened->builder.RootName());
    if (name.empty()) {  // the engine reads a short document in UTF-16 only at its end
        opened->rest = FinishTree(*opened->file, opened->builder, error);
        if (opened->rest == nullptr) return false;
        opened->end = 0;
        name = ViewOf(xmlDocGetRootElement(opened->rest)->name);
    }
    if (root == nullptr || name != root) {
        error = FormatXmlMessage(
            NOT_LOADED,
            ("The root element is '" + name + "', not '" + (root != nullptr ? root : "") + "'").c_str());
        return false;
    }
    impl = std::move(opened);
    return true;
}

int XmlRecordReader::Next(TCXML& part) {
    if (impl == nullptr) return -1;
    while (impl->children.empty() && impl->end == 1) {
        if (impl->builder.FeedFrom(*impl->file)) continue;
        impl->rest = FinishTree(*impl->file, impl->builder, error);
        impl->end = impl->rest != nullptr ? 0 : -1;
    }
    if (impl->children.empty()) return impl->end;
    XmlAccess::Reset(part, impl->NextPart());
    return 1;
}

}  // namespace tc
