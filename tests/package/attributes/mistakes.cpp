// Uses of vncommon.hpp that every compiler must warn about: the comment names the warning.
#include <vncommon/vncommon.hpp>

// clang-format off
void mistakes(vn::string_buffer& buffer, vn::semaphore& semaphore, vn::event& event);
void mistakes(vn::string_buffer& buffer, vn::semaphore& semaphore, vn::event& event) {
    vn::log_trace("%s", 1);                  /* format */
    vn::log_debug("%s", 1);                  /* format */
    vn::log_info("%s", 1);                   /* format */
    vn::log_warn("%d", "x");                 /* format */
    vn::log_error("%d", 0.5);                /* format */
    vn::log_fatal("%s", 1);                  /* format */
    vn::log_crit("%s", 1);                   /* format */
    vn::log_force("%s", 1);                  /* format */
    buffer.append_file("x");                 /* unused-result */
    semaphore.try_wait();                    /* unused-result */
    event.release();                         /* unused-result */
}
