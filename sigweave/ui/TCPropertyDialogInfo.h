#pragma once

#include <functional>
#include <limits>

#include "sigweave/platform/Export.h"
#include "sigweave/platform/Framework.h"
#include "sigweave/ui/TCTranslatedString.h"

// When an item is enabled or shown: while another one has one of these values. No values: always.
struct TC_API TCPropertyCondition {
    CString key;
    CStringArray values;
};

struct TCPropertyColumn;

// One item of a dialog: what it shows, what it allows and where its value comes from. Every value has a text
// form, in which front ends exchange it:
//
//     INT, DOUBLE, SLIDER   a number with a point, as 2.5
//     BOOL                  yes, no
//     COMBO, RADIO          one of the choices
//     DATE_TIME             2026-03-01 12:00:00.250, in UTC; what follows the minutes may be missing
//     FONT                  the face, the points and the styles, as Tahoma 10 bold italic
//     COLOUR                #rrggbb
//     LIST                  see TC_ListEditCtrl
//     the others            any text
//
// The functions that answer the item itself are for `dialog.Add(...).Unit("Hz").Limits(1, 10)`.
struct TC_API TCPropertyDialogInfo {
    // Never change, only append.
    enum KIND : int {
        INT = 0,
        DOUBLE = 1,
        STRING = 2,
        BOOL = 3,
        COMBO = 4,
        EDIT_COMBO = 5,  // a text, with suggestions
        RADIO = 6,
        SLIDER = 7,
        DATE_TIME = 8,
        FILE = 9,
        OUTPUT_FILE = 10,
        FOLDER = 11,
        FONT = 12,
        COLOUR = 13,
        LIST = 14,
        TEXT = 15,  // several lines, in an editor
        BUTTON = 16,
        READ_ONLY = 17,
        LABEL = 18,
        GROUP = 19,
        PAGE = 20,
        SEPARATOR = 21
    };
    // Whether its values are names of ports, of which no two of a kind may be equal (never change).
    enum PORTS : int { NO_PORTS = 0, INPUT_PORTS = 1, OUTPUT_PORTS = 2 };

    KIND kind = LABEL;
    CString key;  // of no other item in the dialog
    TCTranslatedString label;
    TCTranslatedString help;
    CString unit;
    double minimum = std::numeric_limits<double>::lowest();  // of numbers, both ends allowed
    double maximum = std::numeric_limits<double>::max();
    double step = 0.0;  // of a number; 0: any
    CStringArray choices;
    CStringArray suggestions;
    CString fileFilter;  // as "*.wav;*.flac"
    CString language;    // of an editor, as "lua"
    bool required = false;
    PORTS ports = NO_PORTS;
    int controlId = 0;  // of the window in which a front end shows it, for balloons
    TCPropertyCondition enabledWhen;
    TCPropertyCondition shownWhen;
    bool rebuilds = false;  // see TCPropertyDialog::OnRebuild
    CArray<TCPropertyColumn> columns;
    CString parent;  // the key of its group or page; empty: none

    // The value of now, as text; null for an item without one.
    std::function<CString()> get;
    // Takes a text that was checked; null: it can only be read.
    std::function<void(const CString&)> set;
    // Why a text is not allowed, empty when it is. After the check of the kind, or instead of it.
    std::function<CString(const CString&)> check;
    bool checksAlone = false;
    std::function<void()> press;  // of a button

    // Of a number that a slider may show: whether equal ways are equal ratios.
    bool logarithmic = false;
    int digits = -1;      // to show behind the point; -1: as many as the value has
    bool live = false;    // it may change while the module runs
    bool secret = false;  // no front end, message or log shows its value
    // For messages, what a text may be; null: by the kind.
    std::function<CString()> allowed;

    TCPropertyDialogInfo& Help(const TCTranslatedString& text);
    TCPropertyDialogInfo& Unit(const char* text);
    TCPropertyDialogInfo& Limits(double lowest, double highest);
    TCPropertyDialogInfo& Suggest(const CStringArray& texts);
    TCPropertyDialogInfo& Filter(const char* pattern);
    TCPropertyDialogInfo& Language(const char* name);
    TCPropertyDialogInfo& Required();
    TCPropertyDialogInfo& NamesPorts(PORTS portKind);
    TCPropertyDialogInfo& EnabledWhen(const char* other, const CStringArray& values);
    TCPropertyDialogInfo& ShownWhen(const char* other, const CStringArray& values);
    TCPropertyDialogInfo& Rebuilds();
    TCPropertyDialogInfo& Secret();
    // Shows a text of rows, as tc::WritePropertyRows writes it, as a list; its own check comes behind the
    // list's.
    TCPropertyDialogInfo& AsList(const CArray<TCPropertyColumn>& listColumns);
    TCPropertyDialogInfo& Check(std::function<CString(const CString&)> check);

    bool HasValue() const { return get != nullptr; }
    bool IsEditable() const { return set != nullptr; }
    // Why the text cannot be its value, beginning with its key; empty when it can.
    CString WhyNotAllowed(const CString& text) const;
    // "an integer from 1 to 10 (in Hz)", for messages.
    CString DescribeAllowed() const;

 private:
    TC_LOCAL CString Refuse(const CString& text) const;
};

// A column of a list: its cells are values of one of the kinds above LIST.
struct TC_API TCPropertyColumn {
    CString key = {};
    TCTranslatedString label = {};
    TCPropertyDialogInfo::KIND kind = TCPropertyDialogInfo::STRING;
    bool unique = false;  // no two rows have the same value
    TCPropertyDialogInfo::PORTS ports = TCPropertyDialogInfo::NO_PORTS;
    double minimum = std::numeric_limits<double>::lowest();
    double maximum = std::numeric_limits<double>::max();
    CString unit = {};
    CStringArray choices = {};
};
