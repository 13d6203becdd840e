// A library with a function that nobody defines. It loads only if symbols are bound when first
// used.
extern "C" void vnTestMissingFunction();
extern "C" void vnTestCallMissingFunction();

extern "C" void vnTestCallMissingFunction() {
    vnTestMissingFunction();
}
