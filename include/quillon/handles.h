// The two system handle types that an image carries, declared exactly as the Windows headers
// declare them, so that this header and windows.h may be included in either order. On other
// systems they are opaque pointers of the same shape.
#pragma once

struct HBITMAP__;
struct HDC__;
typedef struct HBITMAP__* HBITMAP;
typedef struct HDC__* HDC;
