#pragma once

#include <functional>

#include "sigweave/foundation/TCLogFont.h"
#include "sigweave/foundation/TCString.h"
#include "sigweave/platform/Export.h"
#include "sigweave/ui/TCPropertyDialog.h"

// One function for each kind of item. Each adds the item to the dialog, bound to the variable, and answers it
// for whatever else is to be said about it. For a value that is kept elsewhere there is TCPropertyDialog::Add
// with a TCPropertyBinding.

TC_API TCPropertyDialogInfo& TCPropertyInt(TCPropertyDialog& dialog, const char* key,
                                           const TCTranslatedString& label, int& value);
TC_API TCPropertyDialogInfo& TCPropertyDouble(TCPropertyDialog& dialog, const char* key,
                                              const TCTranslatedString& label, double& value);
TC_API TCPropertyDialogInfo& TCPropertyString(TCPropertyDialog& dialog, const char* key,
                                              const TCTranslatedString& label, TCString& value);
TC_API TCPropertyDialogInfo& TCPropertyBool(TCPropertyDialog& dialog, const char* key,
                                            const TCTranslatedString& label, bool& value);
// The position among the choices; one that is none shows the empty text, which is refused.
TC_API TCPropertyDialogInfo& TCPropertyCombo(TCPropertyDialog& dialog, const char* key,
                                             const TCTranslatedString& label, const CStringArray& choices,
                                             int& position);
TC_API TCPropertyDialogInfo& TCPropertyRadio(TCPropertyDialog& dialog, const char* key,
                                             const TCTranslatedString& label, const CStringArray& choices,
                                             int& position);
TC_API TCPropertyDialogInfo& TCPropertyEditCombo(TCPropertyDialog& dialog, const char* key,
                                                 const TCTranslatedString& label,
                                                 const CStringArray& suggestions, TCString& value);
TC_API TCPropertyDialogInfo& TCPropertySlider(TCPropertyDialog& dialog, const char* key,
                                              const TCTranslatedString& label, double minimum, double maximum,
                                              double step, double& value);
// In milliseconds since 1970-01-01 00:00 UTC.
TC_API TCPropertyDialogInfo& TCPropertyDateTime(TCPropertyDialog& dialog, const char* key,
                                                const TCTranslatedString& label, double& time);
// `filter` as "*.wav;*.flac"; empty: all files.
TC_API TCPropertyDialogInfo& TCPropertyFile(TCPropertyDialog& dialog, const char* key,
                                            const TCTranslatedString& label, const char* filter,
                                            TCString& path);
TC_API TCPropertyDialogInfo& TCPropertyOutputFile(TCPropertyDialog& dialog, const char* key,
                                                  const TCTranslatedString& label, const char* filter,
                                                  TCString& path);
TC_API TCPropertyDialogInfo& TCPropertyFolder(TCPropertyDialog& dialog, const char* key,
                                              const TCTranslatedString& label, TCString& path);
// What its text form does not say stays as it is.
TC_API TCPropertyDialogInfo& TCPropertyFont(TCPropertyDialog& dialog, const char* key,
                                            const TCTranslatedString& label, TCLogFont& font);
// Red in the lowest byte, then green and blue.
TC_API TCPropertyDialogInfo& TCPropertyColour(TCPropertyDialog& dialog, const char* key,
                                              const TCTranslatedString& label, unsigned long& colour);
// Rows with a cell a column.
TC_API TCPropertyDialogInfo& TCPropertyList(TCPropertyDialog& dialog, const char* key,
                                            const TCTranslatedString& label,
                                            const CArray<TCPropertyColumn>& columns,
                                            CArray<CStringArray>& rows);
// In an editor for that language; empty: plain text.
TC_API TCPropertyDialogInfo& TCPropertyText(TCPropertyDialog& dialog, const char* key,
                                            const TCTranslatedString& label, const char* language,
                                            TCString& text);
TC_API TCPropertyDialogInfo& TCPropertyButton(TCPropertyDialog& dialog, const char* key,
                                              const TCTranslatedString& label, std::function<void()> press);
TC_API TCPropertyDialogInfo& TCPropertyReadOnly(TCPropertyDialog& dialog, const char* key,
                                                const TCTranslatedString& label,
                                                std::function<CString()> value);
TC_API TCPropertyDialogInfo& TCPropertyLabel(TCPropertyDialog& dialog, const char* key,
                                             const TCTranslatedString& text);
// What is added after it belongs to it; see TCPropertyDialog::EndGroup.
TC_API TCPropertyDialogInfo& TCPropertyGroup(TCPropertyDialog& dialog, const char* key,
                                             const TCTranslatedString& label);
TC_API TCPropertyDialogInfo& TCPropertyPage(TCPropertyDialog& dialog, const char* key,
                                            const TCTranslatedString& label);
TC_API TCPropertyDialogInfo& TCPropertySeparator(TCPropertyDialog& dialog, const char* key);
