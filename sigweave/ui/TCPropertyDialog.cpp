#include "sigweave/ui/TCPropertyDialog.h"

#include <algorithm>
#include <utility>

using Info = TCPropertyDialogInfo;

Info& TCPropertyDialog::Add(KIND kind, const char* key, const TCTranslatedString& label,
                            const TCPropertyBinding& binding) {
    auto item = std::make_unique<Info>();
    item->kind = kind;
    item->key = key;
    item->label = label;
    item->get = binding.get;
    item->set = binding.set;
    item->check = binding.check;
    item->checksAlone = binding.check != nullptr;
    if (kind == Info::PAGE) EndPage();
    if (kind == Info::GROUP) EndGroup();
    item->parent = group.empty() ? page : group;
    if (kind == Info::PAGE) page = key;
    if (kind == Info::GROUP) group = key;
    const auto same = std::ranges::find(items, item->key, [](const auto& other) { return other->key; });
    if (same == items.end()) return *items.emplace_back(std::move(item));
    item->parent = (*same)->parent;
    *same = std::move(item);
    return **same;
}

void TCPropertyDialog::EndGroup() {
    group.clear();
}

void TCPropertyDialog::EndPage() {
    group.clear();
    page.clear();
}

bool TCPropertyDialog::Remove(const CString& key) {
    if (Find(key) == nullptr) return false;
    const CString removed = key;
    if (page == removed) EndPage();
    if (group == removed) EndGroup();
    std::erase_if(items, [&](const auto& item) { return item->key == removed; });
    for (std::size_t i = items.size(); i-- > 0;)
        if (i < items.size() && items[i]->parent == removed) Remove(CString(items[i]->key));
    return true;
}

void TCPropertyDialog::Clear() {
    items.clear();
    EndPage();
}

const Info* TCPropertyDialog::Get(int index) const {
    return index >= 0 && index < GetCount() ? items[static_cast<std::size_t>(index)].get() : nullptr;
}

const Info* TCPropertyDialog::Find(const CString& key) const {
    const auto found = std::ranges::find(items, key, [](const auto& item) { return item->key; });
    return found != items.end() ? found->get() : nullptr;
}

Info* TCPropertyDialog::Find(const CString& key) {
    return const_cast<Info*>(std::as_const(*this).Find(key));
}
