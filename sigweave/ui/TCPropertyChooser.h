#pragma once

#include "sigweave/platform/Export.h"
#include "sigweave/ui/TCPropertyDialog.h"

// Describes a chooser for the value of a FILE, OUTPUT_FILE, FOLDER, FONT or COLOUR: a dialog like any other,
// which a front end can show for the item in place of a chooser of its system. Of files and folders it lists
// what is there; items "entries" to walk and pick with, "folder" and "name".
//
// `text` is the value in the item's text form. The chooser begins with it and, ended with OK, changes it. A
// relative path starts at `folder` (empty: the current directory) and stays relative while it leads below it.
// Answers 1, or 0 with nothing described for an item of another kind. The text must live as long as the
// dialog. On the thread of the user interface.
TC_API int TCPropertyChooser(TCPropertyDialog& chooser, const TCPropertyDialogInfo& item, CString& text,
                             const CString& folder = "");
