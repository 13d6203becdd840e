/* Not the library's: another record of a name that it uses. */
struct Vector {
    int size;
} otherVector = {3};
