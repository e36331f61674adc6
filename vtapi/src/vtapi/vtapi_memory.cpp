// Release of memory that the library hands to its callers.
#include <cstdlib>

extern "C" {

// Frees a block that an exported call allocated for the caller.
__attribute__((visibility("default"))) void VTAPI_FreeMem(void *memory) { std::free(memory); }

}
