/* What FDLIBM must know about the machine: the order of the two words of a double. */
#ifndef VN_FDLIBM_IEEEFP_H
#define VN_FDLIBM_IEEEFP_H

#if __BYTE_ORDER__ == __ORDER_LITTLE_ENDIAN__
#define __IEEE_LITTLE_ENDIAN
#else
#define __IEEE_BIG_ENDIAN
#endif

#endif
