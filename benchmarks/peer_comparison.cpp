#include "peer_comparison.h"

bool peer_isAtMost(unsigned number, unsigned limit) {
    return number <= limit;
}
