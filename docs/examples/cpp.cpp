#include <cstdio>
#include <mutex>
#include <string>
#include <vncommon/vncommon.hpp>

struct Trade {
    uint64_t id;
    const char* symbol;
    double price;
};

int main() {
    vn::queue<Trade> trades;
    vn::hash_map<std::string, double> last(1024);
    vn::mutex lock;
    {
        const vn::thread consumer([&] {
            for (int i = 0; i < 3; ++i) {
                const Trade trade = trades.pop();
                const std::lock_guard<vn::mutex> guard(lock);
                last.set(trade.symbol, trade.price);
            }
        });
        trades.push({1, "ACME", 12.5});
        trades.push({2, "INIT", 0.25});
        trades.push({3, "ACME", 13});
    } /* joins the thread */

    vn::event book("Book");
    book.add(vn::sequence().add(1).add(2)).add(vn::dictionary().add("ACME", last.value("ACME")));
    std::puts(book.text().c_str());
    if (!last.find("NONE")) {
        std::puts("no trade in NONE");
    }

    int fd = -1;
    if (const vn::error failed{vn_openFileUTF8(&fd, "missing/file", 0)}) {
        vn::log_debug("%s", failed.c_str()); /* the compiler checks the format */
        std::puts(failed.c_str());
    }
}
