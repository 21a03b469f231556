#include "sigweave/module/ValidationQuote.h"

TCString TCValidationQuote(const TCString& declarator) {
    TCString quoted(declarator);
    quoted.Replace("\\", "\\\\");
    quoted.Replace(" ", "\\ ");
    return quoted;
}

TCString TCValidationUnQuote(const TCString& quoted) {
    TCString declarator(quoted);
    declarator.Replace("\\ ", " ");
    declarator.Replace("\\\\", "\\");
    return declarator;
}

CString TCValidationQuote(const CString& declarator) {
    return TCString::TCString2BinCString(TCValidationQuote(TCString::CString2BinTCString(declarator)));
}

CString TCValidationUnQuote(const CString& quoted) {
    return TCString::TCString2BinCString(TCValidationUnQuote(TCString::CString2BinTCString(quoted)));
}
