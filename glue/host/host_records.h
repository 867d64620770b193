// The records and routine tables that a host and a filter exchange through PluginMain, for x86-64.
//
// FilterRecord is packed to 4 bytes, so many of its pointers lie at addresses that are not a multiple of 8:
// read and write its fields by value, never bind a reference or a pointer to one. Every other record has
// natural alignment. The layout is asserted field by field at the end of this file.
//
// Hosts allocate a FilterRecord of 556 bytes or more and agree on its first 512. This declaration ends there,
// so that nothing beyond can be touched by accident. Never copy a whole FilterRecord over a host's.
//
// Calling convention: on Windows the one of x64, for the entry point and for every callback, which a plain
// declaration gives; in the native build, where host and filter come from the same compiler, the system's
// own. No decoration either way.
//
// Marks: H is set by the host, P may or must be set by the filter.
#pragma once

#include <cstddef>
#include <cstdint>

namespace tessaline::host {

// ---------------------------------------------------------------------------------------------- basic types

using OSErr = int16_t;    // 0 = no error, negative = a host's code. As a result only 16 bits are defined
using Boolean = uint8_t;  // 0 = false, anything else true; not bool, whose other values are undefined
using OSType = uint32_t;  // four characters, the first in the most significant byte (FourCharCode)
using Fixed = int32_t;    // signed 16.16
constexpr Fixed kFixedOne = 0x00010000;

// A handle points to a master pointer; *handle is the address of the data. A handle of this program's own
// making (ProgramHandle of glue/parameters/filter_parameters.h) can be read in the same way.
using Handle = void**;

struct Point {
  int16_t v;  // vertical first
  int16_t h;
};
struct Rect {  // bottom and right are exclusive
  int16_t top, left, bottom, right;
};
struct VPoint {
  int32_t v, h;
};
struct VRect {
  int32_t top, left, bottom, right;
};
struct RGBColor {
  uint16_t red, green, blue;
};
struct FilterColor {  // in the colour space of the image
  uint8_t component[4];
};
struct Str255 {  // Pascal string
  uint8_t length;
  char text[255];
};
struct PlugInMonitor {
  Fixed gamma;  // 0 = no data
  Fixed redX, redY, greenX, greenY, blueX, blueY, whiteX, whiteY, ambient;
};

struct PlatformData {
  void*
      hwnd;  // owner for windows; may be null. Records hold a pointer to this record, never the handle itself
};

// ------------------------------------------------------------------------------------------------ selectors

enum Selector : int16_t {
  kSelectorAbout = 0,  // the parameter block is an AboutRecord; a FilterRecord for all others
  kSelectorParameters = 1,
  kSelectorPrepare = 2,
  kSelectorStart = 3,
  kSelectorContinue = 4,
  kSelectorFinish = 5,
};

// FilterRecord::imageMode.
enum ImageModeNumber : int16_t {
  kModeBitmap = 0,
  kModeGray = 1,
  kModeIndexed = 2,
  kModeRgb = 3,
  kModeCmyk = 4,
  kModeHsl = 5,
  kModeHsb = 6,
  kModeMultichannel = 7,
  kModeDuotone = 8,
  kModeLab = 9,
  kModeGray16 = 10,
  kModeRgb48 = 11,
  kModeLab48 = 12,
  kModeCmyk64 = 13,
  kModeDeepMultichannel = 14,
  kModeDuotone16 = 15,
  kModeRgb96 = 16,
  kModeGray32 = 17,
};

// PIDescriptorParameters::playInfo.
enum PlayInfo : int16_t {
  kDialogDontDisplay = 0,  // only if needed
  kDialogDisplay = 1,
  kDialogSilent = 2,  // never
};
// PIDescriptorParameters::recordInfo.
enum RecordInfo : int16_t {
  kDialogOptional = 0,
  kDialogRequired = 1,
  kDialogNone = 2,
};

// Type codes that ReadDescriptorProcs::getKeyProc delivers for the getters in use.
constexpr OSType kDescriptorInteger = 0x6C6F6E67;  // 'long'
constexpr OSType kDescriptorFloat = 0x646F7562;    // 'doub'
constexpr OSType kDescriptorBoolean = 0x626F6F6C;  // 'bool'
constexpr OSType kDescriptorText = 0x54455854;     // 'TEXT'
constexpr OSType kDescriptorNull = 0x6E756C6C;     // 'null'

// Result codes of hosts that the engine itself does not use (image/result_codes.h has the others).
constexpr OSErr kParameterError = -50;
constexpr OSErr kHostIsInsufficient = -30900;
constexpr OSErr kReportString = -30904;  // the host shows the text in its errorString

// ------------------------------------------------------------------------------- tables of the host's
// routines
//
// Each begins with a version and the number of routines that the host filled in: look at the number before a
// routine is used, and at the pointer itself.

struct HandleProcs {  // version 1; some hosts say 7 routines although all eight are there
  int16_t handleProcsVersion;
  int16_t numHandleProcs;
  Handle (*newProc)(int32_t size);
  void (*disposeProc)(Handle);
  int32_t (*getSizeProc)(Handle);  // some hosts answer 0 for handles that they made themselves
  OSErr (*setSizeProc)(Handle, int32_t size);
  void* (*lockProc)(Handle, Boolean moveHigh);
  void (*unlockProc)(Handle);
  void (*recoverSpaceProc)(int32_t size);
  void (*disposeRegularHandleProc)(Handle);
};

struct BufferProcs {  // version 2; 5 or 8 routines
  int16_t bufferProcsVersion;
  int16_t numBufferProcs;
  OSErr (*allocateProc)(int32_t size, void** buffer);
  void* (*lockProc)(void* buffer, Boolean moveHigh);
  void (*unlockProc)(void* buffer);
  void (*freeProc)(void* buffer);
  int32_t (*spaceProc)();
  OSErr (*reserveProc)(int32_t size);
  OSErr (*allocateProc64)(int64_t size, void** buffer);
  int64_t (*spaceProc64)();
};

struct ResourceProcs {  // version 3, 4 routines
  int16_t resourceProcsVersion;
  int16_t numResourceProcs;
  int16_t (*countProc)(OSType);
  Handle (*getProc)(OSType, int16_t index);
  void (*deleteProc)(OSType, int16_t index);
  OSErr (*addProc)(OSType, Handle);
};

struct PropertyProcs {  // version 1, 2 routines
  int16_t propertyProcsVersion;
  int16_t numPropertyProcs;
  OSErr (*getPropertyProc)(OSType signature, OSType key, int32_t index, intptr_t* simple, Handle* complex);
  OSErr (*setPropertyProc)(OSType signature, OSType key, int32_t index, intptr_t simple, Handle complex);
};

struct ImageServicesProcs {  // version 1, 2 routines
  int16_t imageServicesProcsVersion;
  int16_t numImageServicesProcs;
  OSErr (*interpolate1DProc)(void* source, void* destination, Rect* area, Fixed* coordinates, int16_t method);
  OSErr (*interpolate2DProc)(void* source, void* destination, Rect* area, Fixed* coordinates, int16_t method);
};

struct SimpleReference {
  OSType desiredClass;
  OSType keyForm;
  Str255 name;
  int32_t index;
  OSType type;
  OSType value;
};

// Readers and writers are tokens of the host, not always addresses: only compare them with null.
using ReadDescriptorToken = void*;
using WriteDescriptorToken = void*;

// Version 0, 18 routines. Call only the getter that fits the type which getKeyProc told: hosts may treat
// another one as a fatal error.
struct ReadDescriptorProcs {
  int16_t readDescriptorProcsVersion;
  int16_t numReadDescriptorProcs;
  // `keys` ends with 0 and must be writable: a host overwrites the keys that it has delivered with 'null'.
  ReadDescriptorToken (*openReadDescriptorProc)(Handle descriptor, OSType* keys);
  OSErr (*closeReadDescriptorProc)(ReadDescriptorToken);
  Boolean (*getKeyProc)(ReadDescriptorToken, OSType* key, OSType* type, int32_t* flags);
  OSErr (*getIntegerProc)(ReadDescriptorToken, int32_t*);
  OSErr (*getFloatProc)(ReadDescriptorToken, double*);
  OSErr (*getUnitFloatProc)(ReadDescriptorToken, OSType* unit, double*);
  OSErr (*getBooleanProc)(ReadDescriptorToken, Boolean*);
  OSErr (*getTextProc)(ReadDescriptorToken, Handle*);  // a new handle, which the caller owns
  OSErr (*getAliasProc)(ReadDescriptorToken, Handle*);
  OSErr (*getEnumeratedProc)(ReadDescriptorToken, OSType*);
  OSErr (*getClassProc)(ReadDescriptorToken, OSType*);
  OSErr (*getSimpleReferenceProc)(ReadDescriptorToken, SimpleReference*);
  OSErr (*getObjectProc)(ReadDescriptorToken, OSType* type, Handle*);
  OSErr (*getCountProc)(ReadDescriptorToken, uint32_t*);
  OSErr (*getStringProc)(ReadDescriptorToken, Str255*);
  OSErr (*getPinnedIntegerProc)(ReadDescriptorToken, int32_t minimum, int32_t maximum, int32_t*);
  OSErr (*getPinnedFloatProc)(ReadDescriptorToken, const double* minimum, const double* maximum, double*);
  OSErr (*getPinnedUnitFloatProc)(ReadDescriptorToken, const double* minimum, const double* maximum,
                                  OSType* unit, double*);
};

struct WriteDescriptorProcs {  // version 0, 16 routines
  int16_t writeDescriptorProcsVersion;
  int16_t numWriteDescriptorProcs;
  WriteDescriptorToken (*openWriteDescriptorProc)();
  OSErr (*closeWriteDescriptorProc)(WriteDescriptorToken, Handle* newDescriptor);
  OSErr (*putIntegerProc)(WriteDescriptorToken, OSType key, int32_t);
  OSErr (*putFloatProc)(WriteDescriptorToken, OSType key, const double*);  // by pointer
  OSErr (*putUnitFloatProc)(WriteDescriptorToken, OSType key, OSType unit, const double*);
  OSErr (*putBooleanProc)(WriteDescriptorToken, OSType key, Boolean);
  OSErr (*putTextProc)(WriteDescriptorToken, OSType key, Handle);
  OSErr (*putAliasProc)(WriteDescriptorToken, OSType key, Handle);
  OSErr (*putEnumeratedProc)(WriteDescriptorToken, OSType key, OSType type, OSType value);
  OSErr (*putClassProc)(WriteDescriptorToken, OSType key, OSType);
  OSErr (*putSimpleReferenceProc)(WriteDescriptorToken, OSType key, const SimpleReference*);
  OSErr (*putObjectProc)(WriteDescriptorToken, OSType key, OSType type, Handle);
  OSErr (*putCountProc)(WriteDescriptorToken, OSType key, uint32_t);
  OSErr (*putStringProc)(WriteDescriptorToken, OSType key, const Str255*);
  OSErr (*putScopedClassProc)(WriteDescriptorToken, OSType key, OSType);
  OSErr (*putScopedObjectProc)(WriteDescriptorToken, OSType key, OSType type, Handle);
};

struct PIDescriptorParameters {
  int16_t descriptorParametersVersion;         // 0
  int16_t playInfo;                            // H
  int16_t recordInfo;                          // P
  Handle descriptor;                           // H and P: what to play, then what was recorded; may be null
  WriteDescriptorProcs* writeDescriptorProcs;  // the write table comes first; both may be null
  ReadDescriptorProcs* readDescriptorProcs;
};

struct SPBasicSuite {  // no version in front
  int32_t (*acquireSuite)(const char* name, int32_t version, const void** suite);
  int32_t (*releaseSuite)(const char* name, int32_t version);
  int32_t (*isEqual)(const char*, const char*);
  int32_t (*allocateBlock)(size_t size, void** block);
  int32_t (*freeBlock)(void* block);
  int32_t (*reallocateBlock)(void* block, size_t size, void** newBlock);
  int32_t (*undefined)();
};

// Never looked into by this filter.
struct ChannelPortProcs;
struct ColorServicesInfo;
struct PSPixelMap;
struct ReadImageDocumentDesc;

// -------------------------------------------------------------------------------------------------- records

struct AboutRecord {  // some hosts pass no more than 240 bytes: use the first three fields only
  PlatformData* platformData;
  SPBasicSuite* sSPBasic;  // may be null
  void* plugInRef;
  uint8_t reserved[244];
};

// Rectangles in 32 bits. Hosts that set FilterRecord::bigDocumentData look at these, and no longer at the
// 16-bit ones, once PluginUsing32BitCoordinates is not 0.
struct BigDocumentStruct {
  int32_t PluginUsing32BitCoordinates;  // P
  VPoint imageSize32;                   // H
  VRect filterRect32;                   // H
  VRect inRect32;                       // P
  VRect outRect32;                      // P
  VRect maskRect32;                     // P
  VPoint floatCoord32;                  // H
  VPoint wholeSize32;                   // H
};

// The 4 must be a literal: GCC for Windows does not expand a macro here and silently takes natural alignment.
#pragma pack(push, 4)
struct FilterRecord {
  int32_t serialNumber;                               // H
  Boolean (*abortProc)();                             // H: true = the user wants to stop
  void (*progressProc)(int32_t done, int32_t total);  // H: never pass a total of 0
  Handle parameters;                                  // P: stays null here
  Point imageSize;                                    // H: v = height, h = width
  int16_t planes;                                     // H: planes per pixel, colour planes first
  Rect filterRect;                                    // H: the area to filter
  RGBColor background;                                // H
  RGBColor foreground;                                // H
  int32_t maxSpace;                                   // H, P
  int32_t bufferSpace;                                // H, P

  Rect inRect;          // P: requested input; the three rectangles are empty at first
  int16_t inLoPlane;    // P: first input plane
  int16_t inHiPlane;    // P: last input plane, inclusive
  Rect outRect;         // P: requested output
  int16_t outLoPlane;   // P
  int16_t outHiPlane;   // P: inclusive
  void* inData;         // H: set by advanceState; null for an empty inRect
  int32_t inRowBytes;   // H: bytes from row to row of inData
  void* outData;        // H: set by advanceState; null for an empty outRect
  int32_t outRowBytes;  // H

  Boolean isFloating;    // H
  Boolean haveMask;      // H: a selection mask can be asked for
  Boolean autoMask;      // H, P: the host confines the result to the selection
  Rect maskRect;         // P: requested mask
  void* maskData;        // H: coverage, one byte per pixel at any depth, 255 = selected
  int32_t maskRowBytes;  // H

  FilterColor backColor;             // H
  FilterColor foreColor;             // H
  OSType hostSig;                    // H: never test it
  void (*hostProc)(int16_t, void*);  // H: may be null
  int16_t imageMode;                 // H: ImageModeNumber
  Fixed imageHRes;                   // H: pixels per inch
  Fixed imageVRes;                   // H
  Point floatCoord;                  // H
  Point wholeSize;                   // H
  PlugInMonitor monitor;             // H

  PlatformData* platformData;    // H
  BufferProcs* bufferProcs;      // H: may be null, as every table here
  ResourceProcs* resourceProcs;  // H
  void (*processEvent)(void*);   // H: may be null

  OSErr (*displayPixels)(const PSPixelMap*, const VRect*, int32_t row, int32_t column, void* context);  // H

  HandleProcs* handleProcs;          // H
  Boolean supportsDummyChannels;     // H
  Boolean supportsAlternateLayouts;  // H
  int16_t wantLayout;                // P: 0 = rows of pixels of planes
  int16_t filterCase;                // H: 1 .. 7; 0 = not told
  int16_t dummyPlaneValue;           // P

  void* premiereHook;        // H
  OSErr (*advanceState)();   // H: stores the output row, delivers the next data
  Boolean supportsAbsolute;  // H
  Boolean wantsAbsolute;     // P

  OSErr (*getPropertyObsolete)(OSType, OSType, int32_t, intptr_t*, Handle*);  // H

  Boolean cannotUndo;       // P
  Boolean supportsPadding;  // H
  int16_t inputPadding;     // P
  int16_t outputPadding;    // P
  int16_t maskPadding;      // P
  int8_t samplingSupport;   // H
  int8_t reservedByte;
  Fixed inputRate;                             // P: kFixedOne on entry
  Fixed maskRate;                              // P: kFixedOne on entry
  OSErr (*colorServices)(ColorServicesInfo*);  // H

  int16_t inLayerPlanes;         // H: colour planes of a layer with transparency
  int16_t inTransparencyMask;    // H: 1 when a transparency plane follows
  int16_t inLayerMasks;          // H
  int16_t inInvertedLayerMasks;  // H
  int16_t inNonLayerPlanes;      // H: planes of a flat image
  int16_t outLayerPlanes;        // H, as the five above
  int16_t outTransparencyMask;
  int16_t outLayerMasks;
  int16_t outInvertedLayerMasks;
  int16_t outNonLayerPlanes;
  int16_t absLayerPlanes;  // H, as the five above
  int16_t absTransparencyMask;
  int16_t absLayerMasks;
  int16_t absInvertedLayerMasks;
  int16_t absNonLayerPlanes;

  int16_t inPreDummyPlanes;    // P
  int16_t inPostDummyPlanes;   // P
  int16_t outPreDummyPlanes;   // P
  int16_t outPostDummyPlanes;  // P
  int32_t inColumnBytes;       // H: bytes from pixel to pixel; 0 in some hosts, so do not rely on it
  int32_t inPlaneBytes;        // H
  int32_t outColumnBytes;      // H
  int32_t outPlaneBytes;       // H

  ImageServicesProcs* imageServicesProcs;  // H
  PropertyProcs* propertyProcs;            // H
  int16_t inTileHeight;                    // H, down to maskTileOrigin
  int16_t inTileWidth;
  Point inTileOrigin;
  int16_t absTileHeight;
  int16_t absTileWidth;
  Point absTileOrigin;
  int16_t outTileHeight;
  int16_t outTileWidth;
  Point outTileOrigin;
  int16_t maskTileHeight;
  int16_t maskTileWidth;
  Point maskTileOrigin;

  PIDescriptorParameters* descriptorParameters;  // H
  Str255* errorString;                           // P: the host's buffer for a message
  ChannelPortProcs* channelPortProcs;            // H
  ReadImageDocumentDesc* documentInfo;           // H
  SPBasicSuite* sSPBasic;                        // H
  void* plugInRef;                               // H

  int32_t depth;                       // H: bits per channel, 8, 16 or 32
  Handle iCCprofileData;               // H
  int32_t iCCprofileSize;              // H
  int32_t canUseICCProfiles;           // H
  int32_t hasImageScrap;               // H
  BigDocumentStruct* bigDocumentData;  // H: null unless the host offers 32-bit rectangles
};
#pragma pack(pop)

// The smallest record that a host allocates. What lies beyond the fields above is reserved.
constexpr size_t kSmallestHostRecordBytes = 556;

// The filter's one entry. `data` is the filter's own word between calls (left 0: hosts save and free what a
// non-zero word points to); `result` receives the selector's code, which is returned as well.
using EntryPoint = intptr_t (*)(int16_t selector, void* parameterBlock, intptr_t* data, int16_t* result);

// ------------------------------------------------------------------------------------ the layout, field by
// field

#define TESSALINE_FIELD(record, field, offset, bytes)                                    \
  static_assert(offsetof(record, field) == (offset) && sizeof(record::field) == (bytes), \
                #record "::" #field " is out of place")

static_assert(sizeof(void*) == 8, "these records are those of 64-bit hosts");
static_assert(sizeof(Point) == 4 && sizeof(Rect) == 8 && sizeof(VPoint) == 8 && sizeof(VRect) == 16);
static_assert(alignof(Rect) == 2 && alignof(VRect) == 4 && alignof(RGBColor) == 2);
static_assert(sizeof(RGBColor) == 6 && sizeof(FilterColor) == 4 && sizeof(Str255) == 256);
static_assert(sizeof(PlugInMonitor) == 40 && sizeof(PlatformData) == 8);

TESSALINE_FIELD(FilterRecord, serialNumber, 0, 4);
TESSALINE_FIELD(FilterRecord, abortProc, 4, 8);
TESSALINE_FIELD(FilterRecord, progressProc, 12, 8);
TESSALINE_FIELD(FilterRecord, parameters, 20, 8);
TESSALINE_FIELD(FilterRecord, imageSize, 28, 4);
TESSALINE_FIELD(FilterRecord, planes, 32, 2);
TESSALINE_FIELD(FilterRecord, filterRect, 34, 8);
TESSALINE_FIELD(FilterRecord, background, 42, 6);
TESSALINE_FIELD(FilterRecord, foreground, 48, 6);
TESSALINE_FIELD(FilterRecord, maxSpace, 56, 4);
TESSALINE_FIELD(FilterRecord, bufferSpace, 60, 4);
TESSALINE_FIELD(FilterRecord, inRect, 64, 8);
TESSALINE_FIELD(FilterRecord, inLoPlane, 72, 2);
TESSALINE_FIELD(FilterRecord, inHiPlane, 74, 2);
TESSALINE_FIELD(FilterRecord, outRect, 76, 8);
TESSALINE_FIELD(FilterRecord, outLoPlane, 84, 2);
TESSALINE_FIELD(FilterRecord, outHiPlane, 86, 2);
TESSALINE_FIELD(FilterRecord, inData, 88, 8);
TESSALINE_FIELD(FilterRecord, inRowBytes, 96, 4);
TESSALINE_FIELD(FilterRecord, outData, 100, 8);
TESSALINE_FIELD(FilterRecord, outRowBytes, 108, 4);
TESSALINE_FIELD(FilterRecord, isFloating, 112, 1);
TESSALINE_FIELD(FilterRecord, haveMask, 113, 1);
TESSALINE_FIELD(FilterRecord, autoMask, 114, 1);
TESSALINE_FIELD(FilterRecord, maskRect, 116, 8);
TESSALINE_FIELD(FilterRecord, maskData, 124, 8);
TESSALINE_FIELD(FilterRecord, maskRowBytes, 132, 4);
TESSALINE_FIELD(FilterRecord, backColor, 136, 4);
TESSALINE_FIELD(FilterRecord, foreColor, 140, 4);
TESSALINE_FIELD(FilterRecord, hostSig, 144, 4);
TESSALINE_FIELD(FilterRecord, hostProc, 148, 8);
TESSALINE_FIELD(FilterRecord, imageMode, 156, 2);
TESSALINE_FIELD(FilterRecord, imageHRes, 160, 4);
TESSALINE_FIELD(FilterRecord, imageVRes, 164, 4);
TESSALINE_FIELD(FilterRecord, floatCoord, 168, 4);
TESSALINE_FIELD(FilterRecord, wholeSize, 172, 4);
TESSALINE_FIELD(FilterRecord, monitor, 176, 40);
TESSALINE_FIELD(FilterRecord, platformData, 216, 8);
TESSALINE_FIELD(FilterRecord, bufferProcs, 224, 8);
TESSALINE_FIELD(FilterRecord, resourceProcs, 232, 8);
TESSALINE_FIELD(FilterRecord, processEvent, 240, 8);
TESSALINE_FIELD(FilterRecord, displayPixels, 248, 8);
TESSALINE_FIELD(FilterRecord, handleProcs, 256, 8);
TESSALINE_FIELD(FilterRecord, supportsDummyChannels, 264, 1);
TESSALINE_FIELD(FilterRecord, supportsAlternateLayouts, 265, 1);
TESSALINE_FIELD(FilterRecord, wantLayout, 266, 2);
TESSALINE_FIELD(FilterRecord, filterCase, 268, 2);
TESSALINE_FIELD(FilterRecord, dummyPlaneValue, 270, 2);
TESSALINE_FIELD(FilterRecord, premiereHook, 272, 8);
TESSALINE_FIELD(FilterRecord, advanceState, 280, 8);
TESSALINE_FIELD(FilterRecord, supportsAbsolute, 288, 1);
TESSALINE_FIELD(FilterRecord, wantsAbsolute, 289, 1);
TESSALINE_FIELD(FilterRecord, getPropertyObsolete, 292, 8);
TESSALINE_FIELD(FilterRecord, cannotUndo, 300, 1);
TESSALINE_FIELD(FilterRecord, supportsPadding, 301, 1);
TESSALINE_FIELD(FilterRecord, inputPadding, 302, 2);
TESSALINE_FIELD(FilterRecord, outputPadding, 304, 2);
TESSALINE_FIELD(FilterRecord, maskPadding, 306, 2);
TESSALINE_FIELD(FilterRecord, samplingSupport, 308, 1);
TESSALINE_FIELD(FilterRecord, reservedByte, 309, 1);
TESSALINE_FIELD(FilterRecord, inputRate, 312, 4);
TESSALINE_FIELD(FilterRecord, maskRate, 316, 4);
TESSALINE_FIELD(FilterRecord, colorServices, 320, 8);
TESSALINE_FIELD(FilterRecord, inLayerPlanes, 328, 2);
TESSALINE_FIELD(FilterRecord, inTransparencyMask, 330, 2);
TESSALINE_FIELD(FilterRecord, inLayerMasks, 332, 2);
TESSALINE_FIELD(FilterRecord, inInvertedLayerMasks, 334, 2);
TESSALINE_FIELD(FilterRecord, inNonLayerPlanes, 336, 2);
TESSALINE_FIELD(FilterRecord, outLayerPlanes, 338, 2);
TESSALINE_FIELD(FilterRecord, outTransparencyMask, 340, 2);
TESSALINE_FIELD(FilterRecord, outLayerMasks, 342, 2);
TESSALINE_FIELD(FilterRecord, outInvertedLayerMasks, 344, 2);
TESSALINE_FIELD(FilterRecord, outNonLayerPlanes, 346, 2);
TESSALINE_FIELD(FilterRecord, absLayerPlanes, 348, 2);
TESSALINE_FIELD(FilterRecord, absTransparencyMask, 350, 2);
TESSALINE_FIELD(FilterRecord, absLayerMasks, 352, 2);
TESSALINE_FIELD(FilterRecord, absInvertedLayerMasks, 354, 2);
TESSALINE_FIELD(FilterRecord, absNonLayerPlanes, 356, 2);
TESSALINE_FIELD(FilterRecord, inPreDummyPlanes, 358, 2);
TESSALINE_FIELD(FilterRecord, inPostDummyPlanes, 360, 2);
TESSALINE_FIELD(FilterRecord, outPreDummyPlanes, 362, 2);
TESSALINE_FIELD(FilterRecord, outPostDummyPlanes, 364, 2);
TESSALINE_FIELD(FilterRecord, inColumnBytes, 368, 4);
TESSALINE_FIELD(FilterRecord, inPlaneBytes, 372, 4);
TESSALINE_FIELD(FilterRecord, outColumnBytes, 376, 4);
TESSALINE_FIELD(FilterRecord, outPlaneBytes, 380, 4);
TESSALINE_FIELD(FilterRecord, imageServicesProcs, 384, 8);
TESSALINE_FIELD(FilterRecord, propertyProcs, 392, 8);
TESSALINE_FIELD(FilterRecord, inTileHeight, 400, 2);
TESSALINE_FIELD(FilterRecord, inTileWidth, 402, 2);
TESSALINE_FIELD(FilterRecord, inTileOrigin, 404, 4);
TESSALINE_FIELD(FilterRecord, absTileHeight, 408, 2);
TESSALINE_FIELD(FilterRecord, absTileWidth, 410, 2);
TESSALINE_FIELD(FilterRecord, absTileOrigin, 412, 4);
TESSALINE_FIELD(FilterRecord, outTileHeight, 416, 2);
TESSALINE_FIELD(FilterRecord, outTileWidth, 418, 2);
TESSALINE_FIELD(FilterRecord, outTileOrigin, 420, 4);
TESSALINE_FIELD(FilterRecord, maskTileHeight, 424, 2);
TESSALINE_FIELD(FilterRecord, maskTileWidth, 426, 2);
TESSALINE_FIELD(FilterRecord, maskTileOrigin, 428, 4);
TESSALINE_FIELD(FilterRecord, descriptorParameters, 432, 8);
TESSALINE_FIELD(FilterRecord, errorString, 440, 8);
TESSALINE_FIELD(FilterRecord, channelPortProcs, 448, 8);
TESSALINE_FIELD(FilterRecord, documentInfo, 456, 8);
TESSALINE_FIELD(FilterRecord, sSPBasic, 464, 8);
TESSALINE_FIELD(FilterRecord, plugInRef, 472, 8);
TESSALINE_FIELD(FilterRecord, depth, 480, 4);
TESSALINE_FIELD(FilterRecord, iCCprofileData, 484, 8);
TESSALINE_FIELD(FilterRecord, iCCprofileSize, 492, 4);
TESSALINE_FIELD(FilterRecord, canUseICCProfiles, 496, 4);
TESSALINE_FIELD(FilterRecord, hasImageScrap, 500, 4);
TESSALINE_FIELD(FilterRecord, bigDocumentData, 504, 8);
static_assert(sizeof(FilterRecord) == 512 && alignof(FilterRecord) == 4);

TESSALINE_FIELD(AboutRecord, platformData, 0, 8);
TESSALINE_FIELD(AboutRecord, sSPBasic, 8, 8);
TESSALINE_FIELD(AboutRecord, plugInRef, 16, 8);
TESSALINE_FIELD(AboutRecord, reserved, 24, 244);
static_assert(sizeof(AboutRecord) == 272);

TESSALINE_FIELD(BigDocumentStruct, PluginUsing32BitCoordinates, 0, 4);
TESSALINE_FIELD(BigDocumentStruct, imageSize32, 4, 8);
TESSALINE_FIELD(BigDocumentStruct, filterRect32, 12, 16);
TESSALINE_FIELD(BigDocumentStruct, inRect32, 28, 16);
TESSALINE_FIELD(BigDocumentStruct, outRect32, 44, 16);
TESSALINE_FIELD(BigDocumentStruct, maskRect32, 60, 16);
TESSALINE_FIELD(BigDocumentStruct, floatCoord32, 76, 8);
TESSALINE_FIELD(BigDocumentStruct, wholeSize32, 84, 8);
static_assert(sizeof(BigDocumentStruct) == 92);

TESSALINE_FIELD(PIDescriptorParameters, descriptorParametersVersion, 0, 2);
TESSALINE_FIELD(PIDescriptorParameters, playInfo, 2, 2);
TESSALINE_FIELD(PIDescriptorParameters, recordInfo, 4, 2);
TESSALINE_FIELD(PIDescriptorParameters, descriptor, 8, 8);
TESSALINE_FIELD(PIDescriptorParameters, writeDescriptorProcs, 16, 8);
TESSALINE_FIELD(PIDescriptorParameters, readDescriptorProcs, 24, 8);
static_assert(sizeof(PIDescriptorParameters) == 32);

TESSALINE_FIELD(HandleProcs, handleProcsVersion, 0, 2);
TESSALINE_FIELD(HandleProcs, numHandleProcs, 2, 2);
TESSALINE_FIELD(HandleProcs, newProc, 8, 8);
TESSALINE_FIELD(HandleProcs, disposeProc, 16, 8);
TESSALINE_FIELD(HandleProcs, getSizeProc, 24, 8);
TESSALINE_FIELD(HandleProcs, setSizeProc, 32, 8);
TESSALINE_FIELD(HandleProcs, lockProc, 40, 8);
TESSALINE_FIELD(HandleProcs, unlockProc, 48, 8);
TESSALINE_FIELD(HandleProcs, recoverSpaceProc, 56, 8);
TESSALINE_FIELD(HandleProcs, disposeRegularHandleProc, 64, 8);
static_assert(sizeof(HandleProcs) == 72);

TESSALINE_FIELD(ReadDescriptorProcs, readDescriptorProcsVersion, 0, 2);
TESSALINE_FIELD(ReadDescriptorProcs, numReadDescriptorProcs, 2, 2);
TESSALINE_FIELD(ReadDescriptorProcs, openReadDescriptorProc, 8, 8);
TESSALINE_FIELD(ReadDescriptorProcs, closeReadDescriptorProc, 16, 8);
TESSALINE_FIELD(ReadDescriptorProcs, getKeyProc, 24, 8);
TESSALINE_FIELD(ReadDescriptorProcs, getIntegerProc, 32, 8);
TESSALINE_FIELD(ReadDescriptorProcs, getFloatProc, 40, 8);
TESSALINE_FIELD(ReadDescriptorProcs, getUnitFloatProc, 48, 8);
TESSALINE_FIELD(ReadDescriptorProcs, getBooleanProc, 56, 8);
TESSALINE_FIELD(ReadDescriptorProcs, getTextProc, 64, 8);
TESSALINE_FIELD(ReadDescriptorProcs, getAliasProc, 72, 8);
TESSALINE_FIELD(ReadDescriptorProcs, getEnumeratedProc, 80, 8);
TESSALINE_FIELD(ReadDescriptorProcs, getClassProc, 88, 8);
TESSALINE_FIELD(ReadDescriptorProcs, getSimpleReferenceProc, 96, 8);
TESSALINE_FIELD(ReadDescriptorProcs, getObjectProc, 104, 8);
TESSALINE_FIELD(ReadDescriptorProcs, getCountProc, 112, 8);
TESSALINE_FIELD(ReadDescriptorProcs, getStringProc, 120, 8);
TESSALINE_FIELD(ReadDescriptorProcs, getPinnedIntegerProc, 128, 8);
TESSALINE_FIELD(ReadDescriptorProcs, getPinnedFloatProc, 136, 8);
TESSALINE_FIELD(ReadDescriptorProcs, getPinnedUnitFloatProc, 144, 8);
static_assert(sizeof(ReadDescriptorProcs) == 152);

TESSALINE_FIELD(WriteDescriptorProcs, writeDescriptorProcsVersion, 0, 2);
TESSALINE_FIELD(WriteDescriptorProcs, numWriteDescriptorProcs, 2, 2);
TESSALINE_FIELD(WriteDescriptorProcs, openWriteDescriptorProc, 8, 8);
TESSALINE_FIELD(WriteDescriptorProcs, closeWriteDescriptorProc, 16, 8);
TESSALINE_FIELD(WriteDescriptorProcs, putIntegerProc, 24, 8);
TESSALINE_FIELD(WriteDescriptorProcs, putFloatProc, 32, 8);
TESSALINE_FIELD(WriteDescriptorProcs, putUnitFloatProc, 40, 8);
TESSALINE_FIELD(WriteDescriptorProcs, putBooleanProc, 48, 8);
TESSALINE_FIELD(WriteDescriptorProcs, putTextProc, 56, 8);
TESSALINE_FIELD(WriteDescriptorProcs, putAliasProc, 64, 8);
TESSALINE_FIELD(WriteDescriptorProcs, putEnumeratedProc, 72, 8);
TESSALINE_FIELD(WriteDescriptorProcs, putClassProc, 80, 8);
TESSALINE_FIELD(WriteDescriptorProcs, putSimpleReferenceProc, 88, 8);
TESSALINE_FIELD(WriteDescriptorProcs, putObjectProc, 96, 8);
TESSALINE_FIELD(WriteDescriptorProcs, putCountProc, 104, 8);
TESSALINE_FIELD(WriteDescriptorProcs, putStringProc, 112, 8);
TESSALINE_FIELD(WriteDescriptorProcs, putScopedClassProc, 120, 8);
TESSALINE_FIELD(WriteDescriptorProcs, putScopedObjectProc, 128, 8);
static_assert(sizeof(WriteDescriptorProcs) == 136);

TESSALINE_FIELD(BufferProcs, bufferProcsVersion, 0, 2);
TESSALINE_FIELD(BufferProcs, numBufferProcs, 2, 2);
TESSALINE_FIELD(BufferProcs, allocateProc, 8, 8);
TESSALINE_FIELD(BufferProcs, lockProc, 16, 8);
TESSALINE_FIELD(BufferProcs, unlockProc, 24, 8);
TESSALINE_FIELD(BufferProcs, freeProc, 32, 8);
TESSALINE_FIELD(BufferProcs, spaceProc, 40, 8);
TESSALINE_FIELD(BufferProcs, reserveProc, 48, 8);
TESSALINE_FIELD(BufferProcs, allocateProc64, 56, 8);
TESSALINE_FIELD(BufferProcs, spaceProc64, 64, 8);
static_assert(sizeof(BufferProcs) == 72);

TESSALINE_FIELD(SPBasicSuite, acquireSuite, 0, 8);
TESSALINE_FIELD(SPBasicSuite, releaseSuite, 8, 8);
TESSALINE_FIELD(SPBasicSuite, isEqual, 16, 8);
TESSALINE_FIELD(SPBasicSuite, allocateBlock, 24, 8);
TESSALINE_FIELD(SPBasicSuite, freeBlock, 32, 8);
TESSALINE_FIELD(SPBasicSuite, reallocateBlock, 40, 8);
TESSALINE_FIELD(SPBasicSuite, undefined, 48, 8);
static_assert(sizeof(SPBasicSuite) == 56);

TESSALINE_FIELD(ResourceProcs, resourceProcsVersion, 0, 2);
TESSALINE_FIELD(ResourceProcs, numResourceProcs, 2, 2);
TESSALINE_FIELD(ResourceProcs, countProc, 8, 8);
TESSALINE_FIELD(ResourceProcs, getProc, 16, 8);
TESSALINE_FIELD(ResourceProcs, deleteProc, 24, 8);
TESSALINE_FIELD(ResourceProcs, addProc, 32, 8);
static_assert(sizeof(ResourceProcs) == 40);

TESSALINE_FIELD(PropertyProcs, propertyProcsVersion, 0, 2);
TESSALINE_FIELD(PropertyProcs, numPropertyProcs, 2, 2);
TESSALINE_FIELD(PropertyProcs, getPropertyProc, 8, 8);
TESSALINE_FIELD(PropertyProcs, setPropertyProc, 16, 8);
static_assert(sizeof(PropertyProcs) == 24);

TESSALINE_FIELD(ImageServicesProcs, imageServicesProcsVersion, 0, 2);
TESSALINE_FIELD(ImageServicesProcs, numImageServicesProcs, 2, 2);
TESSALINE_FIELD(ImageServicesProcs, interpolate1DProc, 8, 8);
TESSALINE_FIELD(ImageServicesProcs, interpolate2DProc, 16, 8);
static_assert(sizeof(ImageServicesProcs) == 24);

TESSALINE_FIELD(SimpleReference, desiredClass, 0, 4);
TESSALINE_FIELD(SimpleReference, keyForm, 4, 4);
TESSALINE_FIELD(SimpleReference, name, 8, 256);
TESSALINE_FIELD(SimpleReference, index, 264, 4);
TESSALINE_FIELD(SimpleReference, type, 268, 4);
TESSALINE_FIELD(SimpleReference, value, 272, 4);
static_assert(sizeof(SimpleReference) == 276);

#undef TESSALINE_FIELD

}  // namespace tessaline::host
