#include "sigweave/platform/Window.h"

namespace {
CWnd* mainWindow = nullptr;
}

void TCSetMainWindow(CWnd* window) {
    mainWindow = window;
}

CWnd* TCGetMainWindow() {
    return mainWindow;
}
