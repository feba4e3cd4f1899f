// The C library's headers here know no Apple processor; both of them have 64 bits.
#define __WORDSIZE 64
