// A library that needs a function which is nowhere.
extern "C" void NowhereDefined();
extern "C" __attribute__((visibility("default"))) void Call() {
    NowhereDefined();
}
