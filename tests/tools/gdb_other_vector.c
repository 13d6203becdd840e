/* Another record with the name of one of the library's. */
struct Vector {
    int size;
} otherVector = {3};
