/* Uses the library before and after main(), in an object without an init priority. */
#include <vncommon/vncommon.h>
#include <cstdio>

namespace {

struct Early {
    VN_TimestampSet* stamps = VN_TimestampSet_ctor();
    char text[512];

    Early() {
        stamps->functions->addNow(stamps, 1);
        vn_g_fmt(text, vn_strtod("1.2345678901234567890123456789e-300", nullptr));
    }
    ~Early() {
        char* all = stamps->functions->toString(stamps);
        std::printf("%s %s\n", text, all);
        vn_free(all);
        VN_TimestampSet_dtor(stamps);
    }
};

Early early;

}  // namespace

int main() {
    early.stamps->functions->addNow(early.stamps, 2);
}
