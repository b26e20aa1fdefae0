// JPEG decoding with the Windows Imaging Component: its JPEG decoder reads the stream in place,
// and a format converter writes the rows straight into the bitmap as B, G, R, 255. COM is started
// for the call when the thread has not started it, and stopped again afterwards.
#include "ImageJPG.h"

#include <windows.h>

#include <objbase.h>
#include <wincodec.h>

namespace Kiv::Jpeg
{
namespace
{
// Holds one reference to a COM object and releases it.
template <class T>
class ComRef
{
public:
    ComRef() = default;
    ~ComRef()
    {
        if (object != nullptr)
            object->Release();
    }
    ComRef(const ComRef &) = delete;
    ComRef & operator=(const ComRef &) = delete;

    T * operator->() const { return object; }
    T * Get() const { return object; }
    T ** Out() { return &object; }

private:
    T * object = nullptr;
};

// COM on this thread for the life of the object. A thread that runs COM in another apartment
// keeps it: the imaging factory works in either.
class ComScope
{
public:
    ComScope() : result(CoInitializeEx(nullptr, COINIT_MULTITHREADED)) {}
    ~ComScope()
    {
        if (SUCCEEDED(result))
            CoUninitialize();
    }
    ComScope(const ComScope &) = delete;
    ComScope & operator=(const ComScope &) = delete;

    bool Usable() const { return SUCCEEDED(result) || result == RPC_E_CHANGED_MODE; }

private:
    HRESULT result;
};

// Opens the JPEG decoder itself, not one chosen by the bytes, over the caller's memory.
bool OpenFrame(IWICImagingFactory * factory, const uint8_t * data, size_t size, ComRef<IWICStream> & stream,
               ComRef<IWICBitmapDecoder> & decoder, ComRef<IWICBitmapFrameDecode> & frame)
{
    return SUCCEEDED(factory->CreateStream(stream.Out())) &&
           SUCCEEDED(stream->InitializeFromMemory(const_cast<BYTE *>(data), static_cast<DWORD>(size))) &&
           SUCCEEDED(factory->CreateDecoder(GUID_ContainerFormatJpeg, nullptr, decoder.Out())) &&
           SUCCEEDED(decoder->Initialize(stream.Get(), WICDecodeMetadataCacheOnDemand)) &&
           SUCCEEDED(decoder->GetFrame(0, frame.Out()));
}

bool HasSize(IWICBitmapFrameDecode * frame, const Frame & expected)
{
    UINT width = 0;
    UINT height = 0;
    return SUCCEEDED(frame->GetSize(&width, &height)) && width == expected.width && height == expected.height;
}

bool DecodeWith(IWICImagingFactory * factory, const uint8_t * data, size_t size, const Frame & expected,
                uint8_t * pixels, size_t pitch)
{
    ComRef<IWICStream> stream;
    ComRef<IWICBitmapDecoder> decoder;
    ComRef<IWICBitmapFrameDecode> frame;
    ComRef<IWICFormatConverter> converter;
    // The rows hold exactly the frame's size; a decoder that saw another size must not write them.
    if (!OpenFrame(factory, data, size, stream, decoder, frame) || !HasSize(frame.Get(), expected) ||
        FAILED(factory->CreateFormatConverter(converter.Out())))
        return false;
    // BGRA rather than BGR: converting an opaque source to BGRA writes alpha 255.
    const size_t bytes = pitch * expected.height;
    return SUCCEEDED(converter->Initialize(frame.Get(), GUID_WICPixelFormat32bppBGRA, WICBitmapDitherTypeNone,
                                           nullptr, 0.0, WICBitmapPaletteTypeCustom)) &&
           SUCCEEDED(
               converter->CopyPixels(nullptr, static_cast<UINT>(pitch), static_cast<UINT>(bytes), pixels));
}
} // namespace

bool Decode(const uint8_t * data, size_t size, const Frame & frame, uint8_t * pixels, size_t pitch)
{
    if (size > MAXDWORD)
        return false;
    ComScope com;
    ComRef<IWICImagingFactory> factory;
    return com.Usable() &&
           SUCCEEDED(CoCreateInstance(CLSID_WICImagingFactory, nullptr, CLSCTX_INPROC_SERVER,
                                      IID_IWICImagingFactory, reinterpret_cast<void **>(factory.Out()))) &&
           DecodeWith(factory.Get(), data, size, frame, pixels, pitch);
}
} // namespace Kiv::Jpeg
