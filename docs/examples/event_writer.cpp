#include <vncommon/event_writer.h>
#include <cstdio>
#include <cstdlib>
#include <memory>

int main() {
    using Writer = std::unique_ptr<VN_EventWriter, decltype(&VN_EventWriter_dtor)>;
    const Writer order(VN_EventWriter_ctor(VN_EventKind_Event, "Order"), VN_EventWriter_dtor);
    order->addString(order.get(), "ACME");
    order->addFloat(order.get(), 12.5);

    VN_EventWriter* fills = VN_EventWriter_ctor(VN_EventKind_Sequence, nullptr);
    fills->addInt(fills, 100);
    fills->addInt(fills, 200);
    order->addRefValue(order.get(), fills);  // fills now belongs to order

    order->addOptional(order.get(), VN_EventKind_Integer, VN_EventPayload_ofInt(7));

    const std::unique_ptr<char, decltype(&std::free)> text(order->toString(order.get()), std::free);
    std::puts(text.get());
}
