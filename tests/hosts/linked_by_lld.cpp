// A host that no MinGW linker has seen: found through quillon.lib by a linker of Microsoft's kind.
// It has no runtime library, so its exit status is all it says: 42 when the calls did their work.
#include "quillon/quillon.h"

extern "C" int Main() {
  quillon::RLERegion* region = quillon::CreateRLERegion();
  const bool works = region != nullptr && quillon::IxGetBlobCount(region) == 0;
  quillon::DestroyRLERegion(region);
  return works ? 42 : 1;
}
