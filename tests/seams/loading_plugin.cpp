// Calls the program that loads it, from its constructor.
extern "C" void pluginIsLoading();

namespace {

__attribute__((constructor)) void whileLoading() {
    pluginIsLoading();
}

}  // namespace
