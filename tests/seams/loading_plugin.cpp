// Its constructor calls a function of the program that loads it.
extern "C" void pluginIsLoading();

namespace {

__attribute__((constructor)) void whileLoading() {
    pluginIsLoading();
}

}  // namespace
