/* The byte order of doubles for netlib's sources; it is the same as that of integers here. */
#if __BYTE_ORDER__ == __ORDER_LITTLE_ENDIAN__
#define __IEEE_LITTLE_ENDIAN
#else
#define __IEEE_BIG_ENDIAN
#endif
