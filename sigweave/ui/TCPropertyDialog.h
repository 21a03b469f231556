#pragma once

#include <functional>
#include <memory>

#include "sigweave/platform/Export.h"
#include "sigweave/ui/TCPropertyDialogInfo.h"
#include "sigweave/ui/TCTranslatedFont.h"

// The value of an item that is kept elsewhere than in a variable, as text.
struct TC_API TCPropertyBinding {
    std::function<CString()> get;
    std::function<void(const CString&)> set;  // null: it can only be read
    // Why a text is not allowed, beginning with the item's key; empty when it is. Checks alone: the limits
    // and choices of the item are for those who show it.
    std::function<CString(const CString&)> check;
};

// A dialog as a description: its items in order, each bound to a value. It draws nothing and changes nothing
// by itself; TCDialog exchanges its values with a front end.
//
//     TCPropertyInt(dialog, "block", "Block size", block).Limits(1, 65536);
//     TCPropertyCombo(dialog, "window", "Window", {"hann", "hamming"}, window);
//
// Bound variables and whatever functions use must live as long as the dialog. References to items are valid
// until that item is removed. On the thread of the user interface.
class TC_API TCPropertyDialog {
 public:
    using KIND = TCPropertyDialogInfo::KIND;

    TCPropertyDialog() = default;
    TCPropertyDialog(const TCPropertyDialog&) = delete;
    TCPropertyDialog& operator=(const TCPropertyDialog&) = delete;

    // Adds an item at the end, below the page and group that were begun last. An item whose key is there
    // already takes that one's place, so that a module can alter what its base has described.
    TCPropertyDialogInfo& Add(KIND kind, const char* key, const TCTranslatedString& label,
                              const TCPropertyBinding& binding = {});
    // What is added next belongs to the page alone, or to neither.
    void EndGroup();
    void EndPage();
    // With a page or group, what belongs to it goes too. False when there is no such item.
    bool Remove(const CString& key);
    void Clear();

    int GetCount() const { return static_cast<int>(items.size()); }
    // Null for an index out of range.
    const TCPropertyDialogInfo* Get(int index) const;
    TCPropertyDialogInfo* Find(const CString& key);
    const TCPropertyDialogInfo* Find(const CString& key) const;

    TCTranslatedString title;
    TCTranslatedFont font;

    // Called after a value was changed whose item rebuilds, with the text of now of each key: may add, alter
    // and remove items, or clear them all and begin anew. Values of keys that stay are kept.
    using Texts = std::function<CString(const char* key)>;
    std::function<void(TCPropertyDialog& dialog, const Texts& now)> onRebuild;
    // Whether the values fit together, before any is set: why not, empty when they do. A reason that begins
    // with a key and a colon is about that item.
    std::function<CString(const Texts& wanted)> checkTogether;
    // Called when all values are set: false with a reason, as above, takes them back.
    std::function<bool(CString& refusal)> apply;

 private:
    CArray<std::unique_ptr<TCPropertyDialogInfo>> items;
    CString page;
    CString group;
};
