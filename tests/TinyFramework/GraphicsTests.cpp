#include "TinyFramework/Graphics/TinyDC.h"
#include "TinyFramework/Graphics/TinyFont.h"
#include "TinyFramework/Graphics/TinyFontCollection.h"
#include "TinyFramework/Graphics/TinyGdiObjects.h"
#include "TinyFramework/Graphics/TinyHandle.h"

#include "tests/support/TemporaryFolder.h"

#include <gtest/gtest.h>

#include <windows.h>
#include <commctrl.h>

#include <string>
#include <vector>

namespace {

using namespace TinyFramework;

constexpr COLORREF kWhite = RGB(255, 255, 255);

// A pixel of a 32-bit DIB as GDI writes it: blue in the low byte, red above green.
DWORD Dib(COLORREF color) {
    return (static_cast<DWORD>(GetRValue(color)) << 16) |
           (static_cast<DWORD>(GetGValue(color)) << 8) | GetBValue(color);
}

// A white 32-bit DIB section selected into a memory context, whose pixels the tests read.
class Canvas {
public:
    Canvas(int cx, int cy) : m_cx(cx), m_cy(cy) {
        EXPECT_EQ(m_bitmap.CreateDIBSection(cx, cy), TRUE);
        EXPECT_EQ(m_dc.Create(nullptr, m_bitmap.Handle()), TRUE);
        const RECT all = {0, 0, cx, cy};
        EXPECT_EQ(m_dc.FillSolidRect(all, kWhite), TRUE);
    }

    TinyMemDC& DC() { return m_dc; }

    // The picture as it stands, row by row from the top.
    std::vector<DWORD> Pixels() {
        GdiFlush();
        const DWORD* bits = m_bitmap.GetBits();
        return std::vector<DWORD>(bits, bits + m_cx * m_cy);
    }

    // A white picture of the canvas's size, for the expected result.
    std::vector<DWORD> White() const { return std::vector<DWORD>(m_cx * m_cy, Dib(kWhite)); }

    // Paints [left, right) x [top, bottom) of an expected picture.
    void Paint(std::vector<DWORD>& picture, int left, int top, int right, int bottom,
               COLORREF color) const {
        for (int y = top; y < bottom; ++y) {
            for (int x = left; x < right; ++x) {
                picture[y * m_cx + x] = Dib(color);
            }
        }
    }

    int Width() const { return m_cx; }
    int Height() const { return m_cy; }

private:
    int m_cx;
    int m_cy;
    // Declared first, destroyed last: the context gives the bitmap back before it goes.
    TinyBitmap m_bitmap;
    TinyMemDC m_dc;
};

// A device context that the test owns, for the handle classes that own nothing.
class OwnedDC {
public:
    OwnedDC() : m_dc(CreateCompatibleDC(nullptr)) {}
    ~OwnedDC() { DeleteDC(m_dc); }
    OwnedDC(const OwnedDC&) = delete;
    OwnedDC& operator=(const OwnedDC&) = delete;
    HDC Get() const { return m_dc; }

private:
    HDC m_dc;
};

// ---- The handle classes and their maps ----

TEST(TinyHandleTest, AttachRegistersTheObjectUnderItsHandle) {
    OwnedDC raw;
    TinyHandleHDC wrapper;
    EXPECT_EQ(wrapper.Attach(raw.Get()), TRUE);
    EXPECT_EQ(wrapper.Handle(), raw.Get());
    EXPECT_EQ(TinyHandleHDC::Lookup(raw.Get()), &wrapper);
    wrapper.Detach();
}

TEST(TinyHandleTest, AttachOfANullHandleReturnsZeroAndRegistersNothing) {
    TinyHandleHDC wrapper;
    const INT_PTR before = TinyHandleHDC::HandleMap().GetCount();
    EXPECT_EQ(wrapper.Attach(nullptr), FALSE);
    EXPECT_EQ(wrapper.Handle(), nullptr);
    EXPECT_EQ(TinyHandleHDC::HandleMap().GetCount(), before);
}

TEST(TinyHandleTest, SecondAttachOfTheSameHandleStoresItButTheMapKeepsTheFirstObject) {
    OwnedDC raw;
    TinyHandleHDC first;
    TinyHandleHDC second;
    ASSERT_EQ(first.Attach(raw.Get()), TRUE);
    EXPECT_EQ(second.Attach(raw.Get()), TRUE);
    EXPECT_EQ(second.Handle(), raw.Get());
    EXPECT_EQ(TinyHandleHDC::Lookup(raw.Get()), &first);
    // The map's one entry goes with whichever object detaches first.
    EXPECT_EQ(second.Detach(), raw.Get());
    EXPECT_EQ(TinyHandleHDC::Lookup(raw.Get()), nullptr);
    EXPECT_EQ(first.Detach(), raw.Get());
}

TEST(TinyHandleTest, DetachRemovesTheEntryAndReturnsTheHandle) {
    OwnedDC raw;
    TinyHandleHDC wrapper;
    wrapper.Attach(raw.Get());
    const INT_PTR attached = TinyHandleHDC::HandleMap().GetCount();
    EXPECT_EQ(wrapper.Detach(), raw.Get());
    EXPECT_EQ(wrapper.Handle(), nullptr);
    EXPECT_EQ(TinyHandleHDC::Lookup(raw.Get()), nullptr);
    EXPECT_EQ(TinyHandleHDC::HandleMap().GetCount(), attached - 1);
}

TEST(TinyHandleTest, DetachOnAnEmptyObjectReturnsNullAndLeavesTheMapAlone) {
    OwnedDC raw;
    TinyHandleHDC registered;
    registered.Attach(raw.Get());
    const INT_PTR before = TinyHandleHDC::HandleMap().GetCount();
    TinyHandleHDC empty;
    EXPECT_EQ(empty.Detach(), nullptr);
    EXPECT_EQ(TinyHandleHDC::HandleMap().GetCount(), before);
    EXPECT_EQ(TinyHandleHDC::Lookup(raw.Get()), &registered);
    registered.Detach();
}

TEST(TinyHandleTest, DestructorNeitherDeletesTheObjectNorLeavesTheMap) {
    HPEN pen = CreatePen(PS_SOLID, 1, RGB(1, 2, 3));
    ASSERT_NE(pen, nullptr);
    const void* address = nullptr;
    {
        TinyHandleHPEN wrapper;
        wrapper.Attach(pen);
        address = &wrapper;
    }
    EXPECT_EQ(GetObjectType(pen), static_cast<DWORD>(OBJ_PEN));
    // The entry outlives its object: it names the address that object had.
    EXPECT_EQ(static_cast<const void*>(TinyHandleHPEN::Lookup(pen)), address);
    TinyHandleHPEN::HandleMap().Remove(pen);
    DeleteObject(pen);
}

TEST(TinyHandleTest, HandleOfANullObjectPointerIsNull) {
    OwnedDC unregistered;
    const TinyHandleHDC* none = TinyHandleHDC::Lookup(unregistered.Get());
    ASSERT_EQ(none, nullptr);
    EXPECT_EQ(none->Handle(), nullptr);
}

TEST(TinyHandleTest, EqualityComparesTheHandles) {
    OwnedDC raw;
    OwnedDC other;
    TinyHandleHDC first;
    TinyHandleHDC sameHandle;
    TinyHandleHDC otherHandle;
    first.Attach(raw.Get());
    sameHandle.Attach(raw.Get());
    otherHandle.Attach(other.Get());
    EXPECT_TRUE(first == sameHandle);
    EXPECT_FALSE(first != sameHandle);
    EXPECT_FALSE(first == otherHandle);
    EXPECT_TRUE(first != otherHandle);
    first.Detach();
    sameHandle.Detach();
    otherHandle.Detach();
}

TEST(TinyHandleTest, EachHandleTypeHasAMapOfItsOwn) {
    TinyPen pen;
    ASSERT_EQ(pen.CreatePen(PS_SOLID, 1, RGB(0, 0, 0)), TRUE);
    EXPECT_EQ(TinyHandleHPEN::Lookup(pen.Handle()), &pen);
    EXPECT_EQ(TinyHandleHBRUSH::Lookup(reinterpret_cast<HBRUSH>(pen.Handle())), nullptr);
    EXPECT_EQ(TinyHandleHDC::Lookup(reinterpret_cast<HDC>(pen.Handle())), nullptr);
}

TEST(TinyHandleTest, MenuAndImageListWrappersAreFoundByTheirHandles) {
    HMENU menu = CreateMenu();
    ASSERT_NE(menu, nullptr);
    HIMAGELIST images = ImageList_Create(16, 16, ILC_COLOR32, 1, 1);
    ASSERT_NE(images, nullptr);
    TinyHandleHMENU menuWrapper;
    TinyHandleHIMAGELIST imagesWrapper;
    menuWrapper.Attach(menu);
    imagesWrapper.Attach(images);
    EXPECT_EQ(TinyHandleHMENU::Lookup(menu), &menuWrapper);
    EXPECT_EQ(TinyHandleHIMAGELIST::Lookup(images), &imagesWrapper);
    DestroyMenu(menuWrapper.Detach());
    ImageList_Destroy(imagesWrapper.Detach());
    EXPECT_EQ(TinyHandleHMENU::Lookup(menu), nullptr);
    EXPECT_EQ(TinyHandleHIMAGELIST::Lookup(images), nullptr);
}

TEST(TinyHandleTest, AWindowWrapperIsFoundByItsHandleUntilDetached) {
    // The desktop window exists without a display, where no window of our own can be made.
    HWND desktop = GetDesktopWindow();
    ASSERT_NE(desktop, nullptr);
    TinyHandleHWND window;
    EXPECT_EQ(window.Attach(desktop), TRUE);
    EXPECT_EQ(TinyHandleHWND::Lookup(desktop), &window);
    // A window handle is not a context handle: the maps are apart.
    EXPECT_EQ(TinyHandleHDC::Lookup(reinterpret_cast<HDC>(desktop)), nullptr);
    EXPECT_EQ(window.Detach(), desktop);
    EXPECT_EQ(TinyHandleHWND::Lookup(desktop), nullptr);
    EXPECT_TRUE(IsWindow(desktop));
}

TEST(TinyHandleTest, ClassRecordsNameTheClassesAndTheirBases) {
    const struct {
        const wchar_t* name;
        const TinyRuntimeClass* base;
    } expected[] = {
        {L"TinyHandleHDC", &TinyObject::classTinyObject},
        {L"TinyHandleHMENU", &TinyObject::classTinyObject},
        {L"TinyHandleHBITMAP", &TinyObject::classTinyObject},
        {L"TinyHandleHFONT", &TinyObject::classTinyObject},
        {L"TinyHandleHPEN", &TinyObject::classTinyObject},
        {L"TinyHandleHBRUSH", &TinyObject::classTinyObject},
        {L"TinyHandleHPALETTE", &TinyObject::classTinyObject},
        {L"TinyHandleHRGN", &TinyObject::classTinyObject},
        {L"TinyHandleHIMAGELIST", &TinyObject::classTinyObject},
        {L"TinyHandleHWND", &TinyObject::classTinyObject},
        {L"TinyDC", &TinyHandleHDC::classTinyHandleHDC},
        {L"TinyMemDC", &TinyDC::classTinyDC},
        {L"TinyWindowDC", &TinyDC::classTinyDC},
        {L"TinyClientDC", &TinyDC::classTinyDC},
        {L"TinyPen", &TinyHandleHPEN::classTinyHandleHPEN},
        {L"TinyBrush", &TinyHandleHBRUSH::classTinyHandleHBRUSH},
        {L"TinyBitmap", &TinyHandleHBITMAP::classTinyHandleHBITMAP},
        {L"TinyPalette", &TinyHandleHPALETTE::classTinyHandleHPALETTE},
        {L"TinyRgn", &TinyHandleHRGN::classTinyHandleHRGN},
        {L"TinyFont", &TinyHandleHFONT::classTinyHandleHFONT},
    };
    for (const auto& entry : expected) {
        const TinyRuntimeClass* record = TinyObject::FromName(entry.name);
        ASSERT_NE(record, nullptr) << "no record " << entry.name;
        EXPECT_STREQ(record->m_className, entry.name);
        EXPECT_EQ(record->m_base, entry.base) << "base of " << entry.name;
    }
}

TEST(TinyHandleTest, AMemoryContextIsKindOfTheContextAndTheHandleClasses) {
    const TinyMemDC dc;
    EXPECT_EQ(dc.GetRuntimeClass(), &TinyMemDC::classTinyMemDC);
    EXPECT_TRUE(dc.IsKindOf(&TinyDC::classTinyDC));
    EXPECT_TRUE(dc.IsKindOf(&TinyHandleHDC::classTinyHandleHDC));
    EXPECT_FALSE(dc.IsKindOf(&TinyHandleHPEN::classTinyHandleHPEN));
    EXPECT_EQ(TinyMemDC::classTinyMemDC.m_objectSize, sizeof(TinyMemDC));
}

// ---- The drawing classes: registration, ownership, deletion ----

// Every owning class is found under its handle while it lives, and at its end the handle has
// left the map and the platform's object is gone.
template <typename Wrapper, typename Create>
void ExpectRegisteredThenDeleted(Create create) {
    HGDIOBJ handle = nullptr;
    {
        Wrapper wrapper;
        ASSERT_EQ(create(wrapper), TRUE);
        handle = wrapper.Handle();
        ASSERT_NE(handle, nullptr);
        EXPECT_EQ(Wrapper::Lookup(wrapper.Handle()), &wrapper);
        EXPECT_NE(GetObjectType(handle), 0u);
    }
    EXPECT_EQ(Wrapper::Lookup(static_cast<decltype(Wrapper().Handle())>(handle)), nullptr);
    EXPECT_EQ(GetObjectType(handle), 0u);
}

TEST(TinyDrawingObjectTest, DCIsRegisteredAndDeletedAtItsEnd) {
    ExpectRegisteredThenDeleted<TinyDC>([](TinyDC& dc) { return dc.CreateCompatibleDC(nullptr); });
}

TEST(TinyDrawingObjectTest, DCCreatedForTheDisplayDriverIsRegisteredAndDeleted) {
    ExpectRegisteredThenDeleted<TinyDC>(
        [](TinyDC& dc) { return dc.CreateDC(L"DISPLAY", nullptr, nullptr, nullptr); });
}

TEST(TinyDrawingObjectTest, PenIsRegisteredAndDeletedAtItsEnd) {
    ExpectRegisteredThenDeleted<TinyPen>(
        [](TinyPen& pen) { return pen.CreatePen(PS_SOLID, 2, RGB(10, 20, 30)); });
}

TEST(TinyDrawingObjectTest, BrushIsRegisteredAndDeletedAtItsEnd) {
    ExpectRegisteredThenDeleted<TinyBrush>(
        [](TinyBrush& brush) { return brush.CreateSolidBrush(RGB(10, 20, 30)); });
}

TEST(TinyDrawingObjectTest, BitmapIsRegisteredAndDeletedAtItsEnd) {
    ExpectRegisteredThenDeleted<TinyBitmap>(
        [](TinyBitmap& bitmap) { return bitmap.CreateDIBSection(4, 4); });
}

TEST(TinyDrawingObjectTest, PaletteIsRegisteredAndDeletedAtItsEnd) {
    ExpectRegisteredThenDeleted<TinyPalette>(
        [](TinyPalette& palette) { return palette.CreateHalftonePalette(nullptr); });
}

TEST(TinyDrawingObjectTest, RegionIsRegisteredAndDeletedAtItsEnd) {
    ExpectRegisteredThenDeleted<TinyRgn>(
        [](TinyRgn& region) { return region.CreateRectRgn(0, 0, 5, 5); });
}

TEST(TinyDrawingObjectTest, FontIsRegisteredAndDeletedAtItsEnd) {
    ExpectRegisteredThenDeleted<TinyFont>([](TinyFont& font) {
        LOGFONTW description = {};
        description.lfHeight = -12;
        lstrcpyW(description.lfFaceName, L"Arial");
        return font.CreateFontIndirect(description);
    });
}

TEST(TinyDrawingObjectTest, DeleteObjectLeavesTheMapAndDeletes) {
    TinyBrush brush;
    ASSERT_EQ(brush.CreateSolidBrush(RGB(1, 1, 1)), TRUE);
    HBRUSH handle = brush.Handle();
    EXPECT_EQ(brush.DeleteObject(), TRUE);
    EXPECT_EQ(brush.Handle(), nullptr);
    EXPECT_EQ(TinyHandleHBRUSH::Lookup(handle), nullptr);
    EXPECT_EQ(GetObjectType(handle), 0u);
    EXPECT_EQ(brush.DeleteObject(), FALSE);
}

TEST(TinyDrawingObjectTest, DetachedObjectSurvivesItsWrapper) {
    HPEN handle = nullptr;
    {
        TinyPen pen;
        ASSERT_EQ(pen.CreatePen(PS_DASH, 1, RGB(1, 2, 3)), TRUE);
        handle = pen.Detach();
        EXPECT_EQ(TinyHandleHPEN::Lookup(handle), nullptr);
    }
    EXPECT_EQ(GetObjectType(handle), static_cast<DWORD>(OBJ_PEN));
    DeleteObject(handle);
}

TEST(TinyDrawingObjectTest, ASecondCreateDeletesTheFirstObject) {
    TinyPen pen;
    ASSERT_EQ(pen.CreatePen(PS_SOLID, 1, RGB(1, 2, 3)), TRUE);
    HPEN first = pen.Handle();
    ASSERT_EQ(pen.CreatePen(PS_SOLID, 3, RGB(4, 5, 6)), TRUE);
    EXPECT_NE(pen.Handle(), first);
    EXPECT_EQ(GetObjectType(first), 0u);
    EXPECT_EQ(TinyHandleHPEN::Lookup(first), nullptr);
    EXPECT_EQ(TinyHandleHPEN::Lookup(pen.Handle()), &pen);
    LOGPEN description = {};
    ASSERT_EQ(pen.GetLogPen(&description), TRUE);
    EXPECT_EQ(description.lopnWidth.x, 3);
    EXPECT_EQ(description.lopnColor, RGB(4, 5, 6));
}

TEST(TinyDrawingObjectTest, AFailedCreateReturnsZeroAndKeepsTheObjectEmpty) {
    TinyBitmap bitmap;
    EXPECT_EQ(bitmap.CreateDIBSection(0, 0), FALSE);
    EXPECT_EQ(bitmap.Handle(), nullptr);
    EXPECT_EQ(bitmap.GetBits(), nullptr);
}

TEST(TinyDrawingObjectTest, CallsOnAnEmptyObjectFail) {
    TinyDC dc;
    EXPECT_EQ(dc.LineTo(1, 1), FALSE);
    EXPECT_EQ(dc.GetPixel(0, 0), CLR_INVALID);
    EXPECT_EQ(dc.DeleteDC(), FALSE);
    TinyRgn region;
    EXPECT_EQ(region.PtInRegion(0, 0), FALSE);
    TinyPalette palette;
    EXPECT_EQ(palette.GetEntryCount(), 0);
}

TEST(TinyMemDCTest, IsRegisteredAndDeletedAtItsEnd) {
    TinyBitmap bitmap;
    ASSERT_EQ(bitmap.CreateDIBSection(4, 4), TRUE);
    ExpectRegisteredThenDeleted<TinyMemDC>(
        [&](TinyMemDC& dc) { return dc.Create(nullptr, bitmap.Handle()); });
}

TEST(TinyMemDCTest, HoldsTheBitmapUntilItsEnd) {
    TinyBitmap bitmap;
    ASSERT_EQ(bitmap.CreateDIBSection(4, 4), TRUE);
    OwnedDC other;
    {
        TinyMemDC dc;
        ASSERT_EQ(dc.Create(nullptr, bitmap.Handle()), TRUE);
        EXPECT_EQ(GetCurrentObject(dc.Handle(), OBJ_BITMAP), bitmap.Handle());
        // A bitmap is in one context at a time.
        EXPECT_EQ(SelectObject(other.Get(), bitmap.Handle()), nullptr);
    }
    // Given back: another context can take it.
    HGDIOBJ original = SelectObject(other.Get(), bitmap.Handle());
    EXPECT_NE(original, nullptr);
    SelectObject(other.Get(), original);
}

TEST(TinyMemDCTest, CreateFailsForABitmapHeldByAnotherContext) {
    TinyBitmap bitmap;
    ASSERT_EQ(bitmap.CreateDIBSection(4, 4), TRUE);
    TinyMemDC holder;
    ASSERT_EQ(holder.Create(nullptr, bitmap.Handle()), TRUE);
    TinyMemDC second;
    EXPECT_EQ(second.Create(nullptr, bitmap.Handle()), FALSE);
    EXPECT_EQ(second.Handle(), nullptr);
}

TEST(TinyClientDCTest, ScreenContextIsRegisteredUntilReleased) {
    TinyClientDC dc;
    ASSERT_EQ(dc.GetDC(nullptr), TRUE);
    HDC handle = dc.Handle();
    EXPECT_EQ(TinyHandleHDC::Lookup(handle), &dc);
    EXPECT_EQ(GetDeviceCaps(handle, BITSPIXEL), 32);
    EXPECT_EQ(dc.ReleaseDC(), TRUE);
    EXPECT_EQ(dc.Handle(), nullptr);
    EXPECT_EQ(TinyHandleHDC::Lookup(handle), nullptr);
}

TEST(TinyWindowDCTest, ScreenContextIsRegisteredUntilReleased) {
    HDC handle = nullptr;
    {
        TinyWindowDC dc;
        ASSERT_EQ(dc.GetWindowDC(nullptr), TRUE);
        handle = dc.Handle();
        EXPECT_EQ(TinyHandleHDC::Lookup(handle), &dc);
    }
    EXPECT_EQ(TinyHandleHDC::Lookup(handle), nullptr);
}

// ---- Drawing into a memory context, read back from the DIB ----

TEST(TinyBitmapTest, DIBSectionIsThirtyTwoBitsTopDownAndWhiteAfterTheCanvasFill) {
    Canvas canvas(6, 3);
    EXPECT_EQ(canvas.Pixels(), canvas.White());
    TinyBitmap bitmap;
    ASSERT_EQ(bitmap.CreateDIBSection(6, 3), TRUE);
    BITMAP description = {};
    ASSERT_EQ(bitmap.GetBitmap(&description), TRUE);
    EXPECT_EQ(description.bmWidth, 6);
    EXPECT_EQ(description.bmHeight, 3);
    EXPECT_EQ(description.bmBitsPixel, 32);
    EXPECT_EQ(description.bmBits, bitmap.GetBits());
}

TEST(TinyBitmapTest, CompatibleBitmapOfAFreshMemoryContextIsMonochrome) {
    TinyDC dc;
    ASSERT_EQ(dc.CreateCompatibleDC(nullptr), TRUE);
    TinyBitmap bitmap;
    ASSERT_EQ(bitmap.CreateCompatibleBitmap(dc.Handle(), 7, 5), TRUE);
    BITMAP description = {};
    ASSERT_EQ(bitmap.GetBitmap(&description), TRUE);
    EXPECT_EQ(description.bmWidth, 7);
    EXPECT_EQ(description.bmHeight, 5);
    EXPECT_EQ(description.bmBitsPixel, 1);
    EXPECT_EQ(bitmap.GetBits(), nullptr);
}

TEST(TinyDCTest, SetPixelWritesTheColourAndGetPixelReadsItBack) {
    Canvas canvas(8, 8);
    EXPECT_EQ(canvas.DC().SetPixel(3, 5, RGB(1, 2, 3)), RGB(1, 2, 3));
    EXPECT_EQ(canvas.DC().GetPixel(3, 5), RGB(1, 2, 3));
    std::vector<DWORD> expected = canvas.White();
    canvas.Paint(expected, 3, 5, 4, 6, RGB(1, 2, 3));
    EXPECT_EQ(canvas.Pixels(), expected);
}

TEST(TinyDCTest, PenDrawsAHorizontalLineWithoutItsEndPoint) {
    Canvas canvas(16, 10);
    TinyPen pen;
    ASSERT_EQ(pen.CreatePen(PS_SOLID, 1, RGB(255, 0, 0)), TRUE);
    canvas.DC().SelectObject(pen.Handle());
    EXPECT_EQ(canvas.DC().MoveTo(2, 5), TRUE);
    EXPECT_EQ(canvas.DC().LineTo(10, 5), TRUE);
    canvas.DC().SelectStockObject(BLACK_PEN);
    std::vector<DWORD> expected = canvas.White();
    canvas.Paint(expected, 2, 5, 10, 6, RGB(255, 0, 0));
    EXPECT_EQ(canvas.Pixels(), expected);
}

TEST(TinyDCTest, PenDrawsAVerticalLine) {
    Canvas canvas(10, 16);
    TinyPen pen;
    ASSERT_EQ(pen.CreatePen(PS_SOLID, 1, RGB(0, 0, 255)), TRUE);
    canvas.DC().SelectObject(pen.Handle());
    canvas.DC().MoveTo(4, 1);
    canvas.DC().LineTo(4, 12);
    canvas.DC().SelectStockObject(BLACK_PEN);
    std::vector<DWORD> expected = canvas.White();
    canvas.Paint(expected, 4, 1, 5, 12, RGB(0, 0, 255));
    EXPECT_EQ(canvas.Pixels(), expected);
}

TEST(TinyDCTest, FillRectPaintsTheRectangleWithTheBrush) {
    Canvas canvas(12, 10);
    TinyBrush brush;
    ASSERT_EQ(brush.CreateSolidBrush(RGB(0, 255, 0)), TRUE);
    const RECT rect = {3, 4, 9, 8};
    EXPECT_EQ(canvas.DC().FillRect(rect, brush.Handle()), TRUE);
    std::vector<DWORD> expected = canvas.White();
    canvas.Paint(expected, 3, 4, 9, 8, RGB(0, 255, 0));
    EXPECT_EQ(canvas.Pixels(), expected);
}

TEST(TinyDCTest, FillSolidRectPaintsTheRectangleAndKeepsTheBackgroundColour) {
    Canvas canvas(12, 10);
    canvas.DC().SetBkColor(RGB(9, 9, 9));
    const RECT rect = {1, 2, 5, 9};
    EXPECT_EQ(canvas.DC().FillSolidRect(rect, RGB(200, 100, 50)), TRUE);
    EXPECT_EQ(GetBkColor(canvas.DC().Handle()), RGB(9, 9, 9));
    std::vector<DWORD> expected = canvas.White();
    canvas.Paint(expected, 1, 2, 5, 9, RGB(200, 100, 50));
    EXPECT_EQ(canvas.Pixels(), expected);
}

TEST(TinyDCTest, RectangleDrawsItsBorderWithThePenAndFillsWithTheBrush) {
    Canvas canvas(12, 10);
    TinyPen pen;
    TinyBrush brush;
    ASSERT_EQ(pen.CreatePen(PS_SOLID, 1, RGB(255, 0, 0)), TRUE);
    ASSERT_EQ(brush.CreateSolidBrush(RGB(0, 0, 255)), TRUE);
    HGDIOBJ oldPen = canvas.DC().SelectObject(pen.Handle());
    HGDIOBJ oldBrush = canvas.DC().SelectObject(brush.Handle());
    EXPECT_EQ(canvas.DC().Rectangle(2, 2, 8, 7), TRUE);
    canvas.DC().SelectObject(oldPen);
    canvas.DC().SelectObject(oldBrush);
    std::vector<DWORD> expected = canvas.White();
    // The border lies inside the rectangle, which ends before its right and bottom edges.
    canvas.Paint(expected, 2, 2, 8, 7, RGB(255, 0, 0));
    canvas.Paint(expected, 3, 3, 7, 6, RGB(0, 0, 255));
    EXPECT_EQ(canvas.Pixels(), expected);
}

TEST(TinyDCTest, EllipseFillsItsMiddleAndLeavesTheCornersOfItsBox) {
    Canvas canvas(20, 20);
    TinyBrush brush;
    ASSERT_EQ(brush.CreateSolidBrush(RGB(0, 0, 0)), TRUE);
    canvas.DC().SelectStockObject(NULL_PEN);
    HGDIOBJ oldBrush = canvas.DC().SelectObject(brush.Handle());
    const RECT box = {2, 2, 18, 18};
    EXPECT_EQ(canvas.DC().Ellipse(box), TRUE);
    canvas.DC().SelectObject(oldBrush);
    const std::vector<DWORD> pixels = canvas.Pixels();
    auto at = [&](int x, int y) { return pixels[y * 20 + x]; };
    for (const POINT inside :
         {POINT{9, 9}, POINT{10, 10}, POINT{5, 9}, POINT{14, 10}, POINT{9, 5}, POINT{10, 14}}) {
        EXPECT_EQ(at(inside.x, inside.y), Dib(RGB(0, 0, 0))) << inside.x << "," << inside.y;
    }
    for (const POINT corner : {POINT{3, 3}, POINT{16, 3}, POINT{3, 16}, POINT{16, 16}}) {
        EXPECT_EQ(at(corner.x, corner.y), Dib(kWhite)) << corner.x << "," << corner.y;
    }
    // Nothing outside the box.
    for (int y = 0; y < 20; ++y) {
        for (int x = 0; x < 20; ++x) {
            if (x < 2 || x >= 18 || y < 2 || y >= 18) {
                EXPECT_EQ(at(x, y), Dib(kWhite)) << x << "," << y;
            }
        }
    }
}

TEST(TinyRgnTest, RectangleMinusRectangleIsAFrameThatFillRgnPaints) {
    Canvas canvas(12, 12);
    TinyRgn outer;
    TinyRgn inner;
    TinyRgn frame;
    ASSERT_EQ(outer.CreateRectRgn(2, 2, 10, 10), TRUE);
    ASSERT_EQ(inner.CreateRectRgn(4, 4, 8, 8), TRUE);
    ASSERT_EQ(frame.CreateRectRgn(0, 0, 0, 0), TRUE);
    EXPECT_EQ(frame.CombineRgn(outer.Handle(), inner.Handle(), RGN_DIFF), COMPLEXREGION);
    EXPECT_EQ(frame.PtInRegion(3, 3), TRUE);
    EXPECT_EQ(frame.PtInRegion(5, 5), FALSE);
    EXPECT_EQ(frame.PtInRegion(10, 10), FALSE);
    RECT box = {};
    EXPECT_EQ(frame.GetRgnBox(&box), COMPLEXREGION);
    EXPECT_EQ(box.left, 2);
    EXPECT_EQ(box.bottom, 10);

    TinyBrush brush;
    ASSERT_EQ(brush.CreateSolidBrush(RGB(0, 128, 255)), TRUE);
    EXPECT_EQ(canvas.DC().FillRgn(frame.Handle(), brush.Handle()), TRUE);
    std::vector<DWORD> expected = canvas.White();
    canvas.Paint(expected, 2, 2, 10, 10, RGB(0, 128, 255));
    canvas.Paint(expected, 4, 4, 8, 8, kWhite);
    EXPECT_EQ(canvas.Pixels(), expected);
}

TEST(TinyRgnTest, UnionOfTwoRectanglesIsTheirBoundingRectangleWhenTheyTouch) {
    TinyRgn left;
    TinyRgn right;
    TinyRgn both;
    TinyRgn whole;
    ASSERT_EQ(left.CreateRectRgn(0, 0, 4, 5), TRUE);
    ASSERT_EQ(right.CreateRectRgnIndirect(RECT{4, 0, 9, 5}), TRUE);
    ASSERT_EQ(both.CreateRectRgn(0, 0, 0, 0), TRUE);
    ASSERT_EQ(whole.CreateRectRgn(0, 0, 9, 5), TRUE);
    EXPECT_EQ(both.CombineRgn(left.Handle(), right.Handle(), RGN_OR), SIMPLEREGION);
    EXPECT_EQ(both.EqualRgn(whole.Handle()), TRUE);
    EXPECT_EQ(both.OffsetRgn(1, 1), SIMPLEREGION);
    EXPECT_EQ(both.PtInRegion(9, 5), TRUE);
    EXPECT_EQ(both.PtInRegion(0, 0), FALSE);
}

TEST(TinyRgnTest, EllipticRegionHoldsItsCentreAndNotTheCornersOfItsBox) {
    TinyRgn region;
    ASSERT_EQ(region.CreateEllipticRgn(0, 0, 20, 10), TRUE);
    EXPECT_EQ(region.PtInRegion(10, 5), TRUE);
    EXPECT_EQ(region.PtInRegion(0, 0), FALSE);
    EXPECT_EQ(region.PtInRegion(19, 9), FALSE);
    EXPECT_EQ(region.PtInRegion(20, 5), FALSE);
}

TEST(TinyRgnTest, ClipRegionKeepsFillsInsideIt) {
    Canvas canvas(10, 10);
    TinyRgn clip;
    ASSERT_EQ(clip.CreateRectRgn(0, 0, 5, 10), TRUE);
    EXPECT_EQ(canvas.DC().SelectClipRgn(clip.Handle()), SIMPLEREGION);
    EXPECT_EQ(canvas.DC().FillSolidRect(RECT{2, 2, 8, 8}, RGB(0, 0, 0)), TRUE);
    canvas.DC().SelectClipRgn(nullptr);
    std::vector<DWORD> expected = canvas.White();
    canvas.Paint(expected, 2, 2, 5, 8, RGB(0, 0, 0));
    EXPECT_EQ(canvas.Pixels(), expected);
}

TEST(TinyDCTest, BitBltCopiesPixelsFromAnotherContext) {
    Canvas source(6, 6);
    source.DC().FillSolidRect(RECT{1, 1, 3, 4}, RGB(10, 20, 30));
    Canvas target(8, 8);
    EXPECT_EQ(target.DC().BitBlt(4, 2, 3, 4, source.DC().Handle(), 0, 0, SRCCOPY), TRUE);
    std::vector<DWORD> expected = target.White();
    target.Paint(expected, 5, 3, 7, 6, RGB(10, 20, 30));
    EXPECT_EQ(target.Pixels(), expected);
}

TEST(TinyDCTest, TextWithAStockFontChangesPixelsOnlyInsideItsExtent) {
    Canvas canvas(80, 40);
    TinyDC& dc = canvas.DC();
    dc.SelectStockObject(DEFAULT_GUI_FONT);
    dc.SetTextColor(RGB(0, 0, 0));
    EXPECT_EQ(dc.SetBkMode(TRANSPARENT), OPAQUE);
    SIZE extent = {};
    ASSERT_EQ(dc.GetTextExtent(L"Hi!", 3, &extent), TRUE);
    ASSERT_GT(extent.cx, 0);
    ASSERT_GT(extent.cy, 0);
    ASSERT_LT(10 + extent.cx, 80);
    ASSERT_LT(8 + extent.cy, 40);
    EXPECT_EQ(dc.TextOut(10, 8, L"Hi!", 3), TRUE);

    const std::vector<DWORD> pixels = canvas.Pixels();
    int changedInside = 0;
    for (int y = 0; y < 40; ++y) {
        for (int x = 0; x < 80; ++x) {
            const bool inside = x >= 10 && x < 10 + extent.cx && y >= 8 && y < 8 + extent.cy;
            const bool changed = pixels[y * 80 + x] != Dib(kWhite);
            if (inside) {
                changedInside += changed ? 1 : 0;
            } else {
                EXPECT_FALSE(changed) << "pixel outside the text at " << x << "," << y;
            }
        }
    }
    EXPECT_GT(changedInside, 0);
}

TEST(TinyDCTest, DrawTextMeasuresAndThenDrawsInsideTheMeasuredRectangle) {
    Canvas canvas(80, 40);
    TinyDC& dc = canvas.DC();
    dc.SelectStockObject(DEFAULT_GUI_FONT);
    dc.SetBkMode(TRANSPARENT);
    RECT measured = {5, 5, 5, 5};
    const int height = dc.DrawText(L"Tiny", -1, &measured, DT_CALCRECT | DT_SINGLELINE);
    EXPECT_GT(height, 0);
    EXPECT_EQ(measured.bottom - measured.top, height);
    SIZE extent = {};
    ASSERT_EQ(dc.GetTextExtent(L"Tiny", 4, &extent), TRUE);
    EXPECT_EQ(measured.right - measured.left, extent.cx);
    // DT_CALCRECT drew nothing.
    EXPECT_EQ(canvas.Pixels(), canvas.White());

    RECT target = measured;
    EXPECT_EQ(dc.DrawText(L"Tiny", -1, &target, DT_SINGLELINE), height);
    const std::vector<DWORD> pixels = canvas.Pixels();
    int changedInside = 0;
    for (int y = 0; y < 40; ++y) {
        for (int x = 0; x < 80; ++x) {
            const bool inside = x >= measured.left && x < measured.right && y >= measured.top &&
                                y < measured.bottom;
            const bool changed = pixels[y * 80 + x] != Dib(kWhite);
            if (inside) {
                changedInside += changed ? 1 : 0;
            } else {
                EXPECT_FALSE(changed) << "pixel outside the text at " << x << "," << y;
            }
        }
    }
    EXPECT_GT(changedInside, 0);
}

TEST(TinyFontTest, FontKeepsItsDescription) {
    LOGFONTW description = {};
    description.lfHeight = -17;
    description.lfWeight = FW_BOLD;
    lstrcpyW(description.lfFaceName, L"Tahoma");
    TinyFont font;
    ASSERT_EQ(font.CreateFontIndirect(description), TRUE);
    LOGFONTW read = {};
    ASSERT_EQ(font.GetLogFont(&read), TRUE);
    EXPECT_EQ(read.lfHeight, -17);
    EXPECT_EQ(read.lfWeight, FW_BOLD);
    EXPECT_STREQ(read.lfFaceName, L"Tahoma");
}

TEST(TinyBrushTest, BrushKeepsItsDescription) {
    TinyBrush brush;
    ASSERT_EQ(brush.CreateHatchBrush(HS_CROSS, RGB(7, 8, 9)), TRUE);
    LOGBRUSH description = {};
    ASSERT_EQ(brush.GetLogBrush(&description), TRUE);
    EXPECT_EQ(description.lbStyle, static_cast<UINT>(BS_HATCHED));
    EXPECT_EQ(description.lbColor, RGB(7, 8, 9));
    EXPECT_EQ(description.lbHatch, static_cast<ULONG_PTR>(HS_CROSS));
}

TEST(TinyPaletteTest, PaletteHoldsItsEntries) {
    struct {
        WORD version;
        WORD count;
        PALETTEENTRY entries[3];
    } logical = {0x300, 3, {{1, 2, 3, 0}, {40, 50, 60, 0}, {255, 0, 128, 0}}};
    TinyPalette palette;
    ASSERT_EQ(palette.CreatePalette(reinterpret_cast<const LOGPALETTE*>(&logical)), TRUE);
    EXPECT_EQ(palette.GetEntryCount(), 3);
    PALETTEENTRY read[3] = {};
    ASSERT_EQ(palette.GetPaletteEntries(0, 3, read), 3u);
    EXPECT_EQ(read[1].peRed, 40);
    EXPECT_EQ(read[1].peGreen, 50);
    EXPECT_EQ(read[1].peBlue, 60);
    const PALETTEENTRY changed = {9, 8, 7, 0};
    EXPECT_EQ(palette.SetPaletteEntries(2, 1, &changed), 1u);
    ASSERT_EQ(palette.GetPaletteEntries(2, 1, read), 1u);
    EXPECT_EQ(read[0].peRed, 9);
    EXPECT_EQ(read[0].peBlue, 7);
}

// ---- Fonts of a private collection ----

// The table tag that names a whole font collection file in GetFontData.
constexpr DWORD kCollectionTag = 0x66637474;  // "ttcf", as the bytes lie in the file

// The file behind a stock font, read through GDI from the font itself: a font file that every
// machine has, wherever it lies. Its face name in `face`; empty bytes when GDI gives none.
std::string FileOfStockFont(int stockFont, std::wstring* face) {
    TinyDC dc;
    if (!dc.CreateCompatibleDC(nullptr)) {
        return std::string();
    }
    dc.SelectStockObject(stockFont);
    wchar_t name[LF_FACESIZE] = {};
    GetTextFaceW(dc.Handle(), LF_FACESIZE, name);
    *face = name;
    DWORD table = kCollectionTag;
    DWORD size = GetFontData(dc.Handle(), table, 0, nullptr, 0);
    if (size == GDI_ERROR) {
        table = 0;
        size = GetFontData(dc.Handle(), table, 0, nullptr, 0);
    }
    if (size == GDI_ERROR || size == 0) {
        return std::string();
    }
    std::string bytes(size, '\0');
    if (GetFontData(dc.Handle(), table, 0, &bytes[0], size) != size) {
        return std::string();
    }
    return bytes;
}

TEST(TinyPrivateFontCollectionTest, AFontFileAddsItsFamily) {
    std::wstring face;
    const std::string bytes = FileOfStockFont(DEFAULT_GUI_FONT, &face);
    ASSERT_FALSE(bytes.empty());
    // Declared first, removed last: GDI+ may hold the file open while the collection lives.
    TestSupport::TemporaryFolder folder;
    ASSERT_TRUE(folder.IsReady());
    const std::wstring path = folder.PathOf(L"stock.ttf");
    ASSERT_TRUE(TestSupport::WriteWholeFile(path, bytes));

    TinyPrivateFontCollection fonts;
    EXPECT_EQ(fonts.GetFamilyCount(), 0);
    ASSERT_EQ(fonts.AddFontFile(path.c_str()), TRUE);
    ASSERT_GE(fonts.GetFamilyCount(), 1);
    bool foundFace = false;
    for (int index = 0; index < fonts.GetFamilyCount(); ++index) {
        wchar_t name[LF_FACESIZE] = {};
        ASSERT_EQ(fonts.GetFamilyName(index, name), TRUE);
        EXPECT_NE(name[0], L'\0');
        foundFace = foundFace || face == name;
    }
    EXPECT_TRUE(foundFace) << "no family named " << face;
}

TEST(TinyPrivateFontCollectionTest, AMissingFileIsRefusedAndAddsNothing) {
    TestSupport::TemporaryFolder folder;
    ASSERT_TRUE(folder.IsReady());
    TinyPrivateFontCollection fonts;
    EXPECT_EQ(fonts.AddFontFile(folder.PathOf(L"missing.ttf").c_str()), FALSE);
    EXPECT_EQ(fonts.GetFamilyCount(), 0);
}

TEST(TinyPrivateFontCollectionTest, AFamilyIndexOutOfRangeGivesAnEmptyName) {
    TinyPrivateFontCollection fonts;
    wchar_t name[LF_FACESIZE] = {L'x'};
    EXPECT_EQ(fonts.GetFamilyName(0, name), FALSE);
    EXPECT_EQ(name[0], L'\0');
}

}  // namespace
