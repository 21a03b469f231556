#pragma once

#include "sigweave/foundation/TCString.h"
#include "sigweave/platform/Export.h"
#include "sigweave/platform/Framework.h"
#include "sigweave/platform/Window.h"

// What a dialog is to ask for. The texts are valid during the call.
struct TCPathQuestion {
    enum Kind { OPEN_FILE, SAVE_FILE, FOLDER };
    Kind kind;
    const char* title;
    // Names and patterns in turn, "Sound files|*.wav;*.flac|All files|*"; empty: any file.
    const char* filter;
    // Absolute, with slashes; may be empty.
    const char* proposal;
    // The window that asks; may be null.
    CWnd* parent;
};

// Dialogs that a host with a user interface offers. Asked on the thread of the user interface.
class TC_API TCPathChooser {
 public:
    virtual ~TCPathChooser() = default;
    // False when the user cancelled; else `path` is what was chosen.
    virtual bool Choose(const TCPathQuestion& question, CString& path) = 0;
};

// Null (the default): no dialogs. Not owned. Set once at start-up.
TC_API void TCSetPathChooser(TCPathChooser* chooser);

// The path of a file or folder as a module keeps it in its settings: with a default folder to which it is
// relative when it lies below it, and with tokens for folders and environment variables, so that the settings
// hold on another machine. The rules of paths are in PathArithmetic.h, the tokens in docs/paths.md.
//
// A value: copy it freely. Use one object on one thread at a time.
class TC_API TCFilePath {
 public:
    // What the dialogs answer.
    enum DialogResult { NOT_AVAILABLE = -2, REFUSED_NAME = -1, CANCELLED = 0, CHOSEN = 1 };

    TCFilePath() = default;
    explicit TCFilePath(const char* defPath) : defaultFolder(defPath) {}

    // Whether tokens are resolved in what is answered as an absolute path; both are off at first. In the
    // default folder they always are.
    void EnableResolveCSIDL(bool enable) { resolveFolders = enable; }
    void EnableResolveEnvironment(bool enable) { resolveEnvironment = enable; }

    // A relative path moves along with its default folder.
    void SetDefPath(const char* defPath) { defaultFolder = defPath; }
    // As it was set.
    const TCString& GetDefPath() const { return defaultFolder; }
    // Keeps the path relative to the default folder where that is possible; tokens stay.
    void SetPath(const char* newPath);

    // Canonical, tokens resolved as enabled, relative ones made absolute with the default folder; without one
    // they stay relative. With backslashes; see tc::NativePath.
    TCString GetAbsPath() const;
    // Below the default folder with a leading ".\", else absolute; tokens stay, so this is what settings
    // store.
    TCString GetRelPath() const;
    // The path as it is kept, for callers that edit it in place.
    TCString& GetPathRef() { return path; }

    // Of the absolute path: all before the last backslash (with it where it is the root), and what follows
    // it; of that the part before the last point, and what follows that.
    TCString GetDirectory() const;
    TCString GetFileName() const;
    TCString GetFileTitle() const;
    TCString GetFileExt() const;

    bool IsEmpty() const { return path.IsEmpty(); }
    // Whether the path differs from what it was when this was last asked (at first: from the empty path).
    bool HasChanged();

    // Ask the user, beginning with the absolute path, and keep what is chosen. Everything but CHOSEN leaves
    // the path alone: NOT_AVAILABLE without a host that offers dialogs, REFUSED_NAME for a path with one of
    // \r \n * ? " < > |. Null texts are empty.
    DialogResult DoFileDialog(bool open, const char* title, const char* filter = nullptr,
                              CWnd* parent = nullptr);
    DialogResult DoFileOpenDialog(const char* title, const char* filter = nullptr, CWnd* parent = nullptr);
    DialogResult DoFileSaveDialog(const char* title, const char* filter = nullptr, CWnd* parent = nullptr);
    DialogResult DoFolderDialog(const char* title, CWnd* parent = nullptr);

    // Makes the folder and those above it, the path not cut; true when it is there now.
    static bool CreateRecursiveDirectory(const char* folder);
    // Of the object's absolute path, taken as that of a folder.
    bool CreateRecursiveDirectory() const { return CreateRecursiveDirectory(GetAbsPath()); }

    // Replace the tokens in place, folders first, and answer how many became text; see tc::ResolvePathTokens.
    static int Resolve(TCString& path, bool resolveCSIDL, bool resolveEnvironment);
    static int Resolve(CString& path, bool resolveCSIDL, bool resolveEnvironment);

    static bool IsAbsolute(const char* path);
    static bool IsRelative(const char* path) { return !IsAbsolute(path); }

    // Shortens a path for display in `width` pixels of the window (null: the main window): folders in the
    // middle give way to "...", the file's name last. Calculated with the average width of a character.
    // False, and the text as short as it gets, when even that is too wide.
    static bool MakeCompactPath(TCString& path, int width, HWND window);

 private:
    TC_LOCAL DialogResult Ask(TCPathQuestion question);
    TC_LOCAL TCString BaseFolder() const;
    TC_LOCAL TCString RelativeToBase(const char* given) const;

    TCString path;
    TCString defaultFolder;
    TCString known;  // the path when `HasChanged` was last asked
    bool resolveFolders = false;
    bool resolveEnvironment = false;
};
