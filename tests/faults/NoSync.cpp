#include <unistd.h>

// What a killed process has written is the kernel's: waits for the disk would tell nothing here.
extern "C" {
int fsync(int) { return 0; }
int fdatasync(int) { return 0; }
}
