#pragma once

#include <map>
#include <utility>

#include "sigweave/platform/Export.h"
#include "sigweave/platform/Window.h"
#include "sigweave/ui/TCPropertyDialog.h"

// Exchanges the values of a dialog with a front end: it takes them out of the bound variables, changes its
// own copies, and puts them back in one go, or not at all.
//
//     TCDialog shown(description);
//     shown.SetText("block", "512", refusal);
//     int result = TCDialog::OK;
//     shown.End(result, refusal);  // the variables are set now
//
// The description must outlive it. On the thread of the user interface.
class TC_API TCDialog {
 public:
    // Never change.
    enum RESULT : int { OK = 1, CANCEL = 2 };

    struct Refusal {
        CString key;   // of the item; empty when it is about several
        CString text;  // what is wrong and what is allowed
    };

    // The balloons of the dialog belong to the window; null: to the main window.
    explicit TCDialog(TCPropertyDialog& description, CWnd* window = nullptr);

    const TCPropertyDialog& GetDescription() const { return dialog; }
    // The present text of an item; empty for an unknown one and one without a value.
    CString GetText(const CString& key) const;
    // By the values of now, its own condition and those of what it belongs to. False for an unknown one.
    bool IsEnabled(const CString& key) const;
    bool IsShown(const CString& key) const;
    // Whether the text differs from the bound value.
    bool IsChanged(const CString& key) const;

    // False, and nothing changed, for a text that is not allowed and for an item that cannot be changed now.
    // May rebuild the dialog.
    bool SetText(const CString& key, const CString& text, Refusal& refusal);
    // Takes the last change back; false when there is none.
    bool Undo();
    // The item that Undo would change; empty: none.
    CString GetUndoKey() const { return undo.empty() ? CString() : undo.back().first; }
    // Presses a button; shows what it changed in bound values. False when there is no such button, or it
    // cannot be pressed now.
    bool Press(const CString& key, Refusal& refusal);
    // Takes all values out of the bound variables again.
    void Load();
    // Puts all texts into the bound variables. False, and nothing changed, when one is wrong: `refusal` names
    // the first one. Items that are disabled or not shown are left out. Names of ports that are given twice
    // are also pointed at by a balloon.
    bool Store(Refusal& refusal);
    // Ends the dialog with a result, as TCBaseModule::OnEndShowDialog takes it. OK stores; when that is
    // refused it answers false, and the dialog goes on. Other results change nothing.
    bool End(int result, Refusal& refusal);

 private:
    using Texts = std::map<CString, CString>;

    TC_LOCAL static bool Holds(const TCPropertyCondition& condition, const Texts& texts);
    TC_LOCAL bool HoldForAll(const CString& key, TCPropertyCondition TCPropertyDialogInfo::*condition) const;
    TC_LOCAL CString WhyNotNow(const TCPropertyDialogInfo& item) const;
    TC_LOCAL bool IsExchanged(const TCPropertyDialogInfo& item) const;
    TC_LOCAL void Change(const CString& key, const CString& text);
    TC_LOCAL void TakeFromBound(bool all);
    TC_LOCAL bool CheckAll(Refusal& refusal) const;
    TC_LOCAL bool CheckPortNames(Refusal& refusal) const;
    TC_LOCAL void PointAtPortName(const TCPropertyDialogInfo& item, bool isInput, const CString& name,
                                  const CString& text) const;
    TC_LOCAL Refusal About(const CString& text) const;
    TC_LOCAL bool Apply(Refusal& refusal);

    TCPropertyDialog& dialog;
    CWnd* parent;
    Texts texts;
    Texts bound;  // what the variables had when they were last read
    CArray<std::pair<CString, CString>> undo;
};
