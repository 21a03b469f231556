#include "sigweave/persistence/XmlRecord.h"

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <deque>
#include <thread>
#include <utility>

#include "sigweave/persistence/TCXML.h"
#include "sigweave/persistence/XmlBuilder.h"
#include "sigweave/persistence/XmlFile.h"
#include "sigweave/persistence/XmlMessages.h"
#include "sigweave/persistence/XmlTree.h"
#include "sigweave/persistence/XmlWriter.h"
#include "sigweave/platform/OutputFile.h"
#include "sigweave/platform/PathText.h"
#include "sigweave/platform/ReplacedFile.h"
#include "sigweave/platform/SystemError.h"
#include "sigweave/services/Bilingual.h"

namespace tc {
namespace {

std::string Reason() {
    static constexpr Bilingual IS_WRITTEN("it is being written", "sie wird gerade geschrieben");
    return errno == EWOULDBLOCK ? IS_WRITTEN.Text() : LastSystemErrorText();
}

// Opens and ends what hides the room after the document; the end has a name, too, so that it is an
// instruction of its own as long as nothing before it hides it.
constexpr std::string_view HIDE = "<?part ", END = "<?part?>\n", END_MARK = "?>";

// A mark that lies within one of these is written at once, whatever happens.
constexpr std::int64_t PAGE = 4096;
constexpr std::int64_t LEAST_ROOM = 256 << 10, MOST_ROOM = 4 << 20;
constexpr std::int64_t PARTS_AHEAD = 8;
constexpr int MOST_WAITS = 50;

// How many blanks bring the mark to the next page, unless it lies within one.
std::int64_t BlanksBefore(std::int64_t offset, std::size_t mark) {
    const auto size = static_cast<std::int64_t>(mark);
    const std::int64_t left = PAGE - offset % PAGE;
    return size > left && size <= PAGE ? left : 0;
}

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

// The file is the document, then an instruction that hides the room for further parts, to the file's end:
//
//     ...</Stream>
//     <?part                     <?part?>
//
// A part is written into the room, and the next closing tag and HIDE after it; then its beginning takes the
// place of the closing tag and HIDE before it, at once. So whoever reads meanwhile, piece by piece, sees the
// old document and hides the rest up to the file's end, or sees the new one. The room grows by blanks long
// before it is needed, since who has found the end of the file may look once more for what follows.
struct XmlRecordWriter::Impl {
    bool Append(std::string text, std::string& error);
    bool MakeRoom(std::int64_t wanted);
    bool ClaimForRoom(bool isLast);
    bool WriteBlanks(std::int64_t from, std::int64_t to);
    bool Close();

    std::string path;
    std::string root;
    std::unique_ptr<ReplacedFile> whole;  // until it begins
    std::unique_ptr<OutputFile> file;     // from then on
    // Where the next part begins, and what is there as long as none follows.
    std::int64_t end = 0;
    std::string closing;
    std::int64_t size = 0;  // of the file

    std::int64_t RoomEnd() const { return size - static_cast<std::int64_t>(END.size()); }
};

bool XmlRecordWriter::Impl::WriteBlanks(std::int64_t from, std::int64_t to) {
    static const std::string BLANKS(1 << 16, ' ');
    while (from < to) {
        const auto count = std::min<std::int64_t>(to - from, static_cast<std::int64_t>(BLANKS.size()));
        if (!file->WriteAt(from, std::string_view(BLANKS).substr(0, static_cast<std::size_t>(count))))
            return false;
        from += count;
    }
    return true;
}

// Blanks and a new end after the old one, which is then hidden with them. False leaves the old end.
bool XmlRecordWriter::Impl::MakeRoom(std::int64_t wanted) {
    if (RoomEnd() >= wanted) return true;
    const std::int64_t newEnd = wanted + BlanksBefore(wanted, END.size());
    if (WriteBlanks(size, newEnd) && file->WriteAt(newEnd, END) &&
        WriteBlanks(RoomEnd() + static_cast<std::int64_t>(END.find(END_MARK)), size)) {
        size = newEnd + static_cast<std::int64_t>(END.size());
        return true;
    }
    const int reason = errno;
    file->Shrink(size);
    errno = reason;
    return false;
}

// `text` ends where the next closing tag is to begin. A part that holds "?>" is seen while it is written.
bool XmlRecordWriter::Impl::Append(std::string text, std::string& error) {
    const std::string next = "\n</" + root + ">\n";
    const std::size_t head = closing.size() + HIDE.size();
    if (text.size() < head) text.resize(head, ' ');
    const auto length = static_cast<std::int64_t>(text.size());
    text.append(static_cast<std::size_t>(BlanksBefore(end + length, next.size() + HIDE.size())), ' ');
    const std::int64_t newEnd = end + static_cast<std::int64_t>(text.size());
    text.append(next).append(HIDE);
    const std::int64_t needed = end + static_cast<std::int64_t>(text.size());
    if (!MakeRoom(needed) ||
        !file->WriteAt(end + static_cast<std::int64_t>(head), std::string_view(text).substr(head)) ||
        !file->WriteAt(end, std::string_view(text).substr(0, head))) {
        error = Reason();
        return false;
    }
    end = newEnd;
    closing = next;
    const std::int64_t ahead =
        std::max(length + PAGE, std::clamp(PARTS_AHEAD * length, LEAST_ROOM, MOST_ROOM));
    if (RoomEnd() >= needed + ahead || !ClaimForRoom(RoomEnd() < needed + length)) return true;
    MakeRoom(needed + 2 * ahead);  // when there is none, the next part says so
    file->Release();
    return true;
}

// The best moment is when nobody reads; at the last one somebody who reads for long is waited for no longer.
bool XmlRecordWriter::Impl::ClaimForRoom(bool isLast) {
    for (int wait = 0; wait < (isLast ? MOST_WAITS : 1); ++wait) {
        if (file->Claim()) return true;
        if (isLast) std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
    return isLast;
}

// Somebody who is reading the room must find its end.
bool XmlRecordWriter::Impl::Close() {
    const bool cut = !file->Claim() || file->Shrink(end + static_cast<std::int64_t>(closing.size()));
    const int reason = errno;
    const bool closed = file->Close();
    if (!cut) errno = reason;
    return cut && closed;
}

XmlRecordWriter::XmlRecordWriter() = default;
XmlRecordWriter::~XmlRecordWriter() {
    Close();
}

bool XmlRecordWriter::Open(const char* path, const char* root) {
    return Prepare(path, root, true) && Begin();
}

bool XmlRecordWriter::Prepare(const char* path, const char* root, bool mayReplace) {
    Close();
    error.clear();
    PrepareXmlEngine();
    if (root == nullptr || xmlValidateNCName(XmlChars(root), 0) != 0) {
        error = FormatXmlMessage(NO_ELEMENT, root != nullptr ? root : "");
        return false;
    }
    auto prepared = std::make_unique<Impl>();
    prepared->path = path != nullptr ? path : "";
    prepared->root = root;
    prepared->whole = ReplacedFile::Open(NativePath(path), {.exclusive = true, .mayReplace = mayReplace});
    if (prepared->whole == nullptr) {
        error = FormatXmlMessage(NOT_OPENED, prepared->path.c_str(), Reason().c_str());
        return false;
    }
    impl = std::move(prepared);
    return true;
}

// Those who are reading an earlier file keep it.
bool XmlRecordWriter::Begin() {
    if (impl == nullptr || impl->whole == nullptr) return false;
    std::string text(XmlWriter::DECLARATION);
    impl->closing = '<' + impl->root + "/>\n";
    impl->end = static_cast<std::int64_t>(text.size());
    text.append(impl->closing).append(HIDE).append(END);
    impl->size = static_cast<std::int64_t>(text.size());
    const std::unique_ptr<ReplacedFile> whole = std::move(impl->whole);
    if (std::fwrite(text.data(), 1, text.size(), whole->Get()) == text.size())
        impl->file = whole->CommitAndGoOn();
    if (impl->file == nullptr) {
        error = FormatXmlMessage(NOT_OPENED, impl->path.c_str(), Reason().c_str());
        impl = nullptr;
        return false;
    }
    impl->MakeRoom(impl->size + LEAST_ROOM);
    return true;
}

bool XmlRecordWriter::Append(TCXML& part) {
    error.clear();
    const bool isOpen = impl != nullptr && impl->file != nullptr;
    const xmlNode* const root = isOpen ? RootToAppend(part) : nullptr;
    if (root == nullptr) {
        error = FormatXmlMessage(NOT_SAVED);
        return false;
    }
    if (root->children == nullptr) return true;
    XmlWriter writer;
    if (impl->closing.starts_with('<')) writer.Raw('<' + impl->root + '>');  // the first part
    for (const xmlNode* node = root->children; node != nullptr; node = node->next) {
        writer.NewLine(1);
        writer.Node(node, 1);
    }
    return impl->Append(std::move(writer.Text()), error);
}

bool XmlRecordWriter::Close() {
    error.clear();
    if (impl == nullptr) return true;
    const bool closed = impl->file == nullptr || impl->Close();
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
    // What is complete but was not asked for, and the root that it was in.
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

// Whatever else is below the root is dropped, so that the tree does not grow.
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
