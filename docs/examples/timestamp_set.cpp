#include <vncommon/failure.h>
#include <vncommon/timestamp_set.h>
#include <cstdio>
#include <memory>

int main() {
    enum Stage : uint64_t { received = 1, matched = 2, sent = 3 };
    using Set = std::unique_ptr<VN_TimestampSet, decltype(&VN_TimestampSet_dtor)>;
    const Set stamps(VN_TimestampSet_ctor(), VN_TimestampSet_dtor);
    stamps->functions->addNow(stamps.get(), received);
    stamps->functions->addNow(stamps.get(), matched);
    stamps->functions->addNow(stamps.get(), sent);

    const double latency = stamps->functions->findTime(stamps.get(), sent) -
                           stamps->functions->findTime(stamps.get(), received);
    std::printf("%s after %.0f s\n", latency < 10 ? "sent in time" : "sent late", latency);

    const std::unique_ptr<char, decltype(&vn_free)> text(stamps->functions->toString(stamps.get()),
                                                         vn_free);
    std::puts(text.get());
}
