// SPDX-License-Identifier: GPL-3.0-or-later
#include <gif_lib.h>

#include <algorithm>
#include <array>
#include <cstring>

#include "maker/declined.h"
#include "maker/decode/decoders.h"
#include "maker/decode/interleaved.h"
#include "maker/limits.h"

namespace tavithumb::maker {
namespace {

[[noreturn]] void Damaged(const char* text) {
  throw Declined(Reason::kDamaged, text);
}

// The rest of a file.
struct Rest {
  const std::uint8_t* next = nullptr;
  std::size_t size = 0;

  // Null if there are fewer.
  const std::uint8_t* Take(std::size_t count) {
    if (count > size) return nullptr;
    const std::uint8_t* bytes = next;
    next += count;
    size -= count;
    return bytes;
  }

  // The bytes of a colour table, by the flags before it.
  bool SkipColours(std::uint8_t flags) {
    constexpr unsigned kHasTable = 0x80;
    return (flags & kHasTable) == 0 || Take(std::size_t{6} << (flags & 7U)) != nullptr;
  }

  bool SkipBlocks() {
    for (;;) {
      const std::uint8_t* length = Take(1);
      if (length == nullptr || Take(*length) == nullptr) return false;
      if (*length == 0) return true;
    }
  }
};

// Whether a second frame starts anywhere; nothing is decoded for that.
bool HasSecondFrame(Rest file) {
  const std::uint8_t* header = file.Take(13);
  if (header == nullptr || !file.SkipColours(header[10])) return false;
  for (int frames = 0;;) {
    const std::uint8_t* kind = file.Take(1);
    if (kind == nullptr) return false;
    if (*kind == '!') {
      if (file.Take(1) == nullptr || !file.SkipBlocks()) return false;
    } else if (*kind == ',') {
      if (++frames == 2) return true;
      const std::uint8_t* frame = file.Take(9);
      if (frame == nullptr || !file.SkipColours(frame[8]) || file.Take(1) == nullptr || !file.SkipBlocks())
        return false;
    } else {
      return false;
    }
  }
}

// giflib calls this from C; it must not throw.
int ReadRest(GifFileType* gif, GifByteType* buffer, int count) {
  auto* rest = static_cast<Rest*>(gif->UserData);
  const std::size_t size = std::min(rest->size, static_cast<std::size_t>(count));
  if (size > 0) std::memcpy(buffer, rest->Take(size), size);
  return static_cast<int>(size);
}

struct CloseGif {
  void operator()(GifFileType* gif) const { DGifCloseFile(gif, nullptr); }
};
using Gif = std::unique_ptr<GifFileType, CloseGif>;

// Reads up to the frame's pixels.
void FindPixels(GifFileType* gif, int* transparent) {
  for (;;) {
    GifRecordType type = UNDEFINED_RECORD_TYPE;
    if (DGifGetRecordType(gif, &type) == GIF_ERROR || type == TERMINATE_RECORD_TYPE) Damaged("there is no picture");
    if (type == IMAGE_DESC_RECORD_TYPE) break;
    int code = 0;
    GifByteType* block = nullptr;
    if (DGifGetExtension(gif, &code, &block) == GIF_ERROR) Damaged("an extension is cut off");
    GraphicsControlBlock control = {};
    if (code == GRAPHICS_EXT_FUNC_CODE && block != nullptr &&
        DGifExtensionToGCB(block[0], block + 1, &control) == GIF_OK) {
      *transparent = control.TransparentColor;
    }
    while (block != nullptr) {
      if (DGifGetExtensionNext(gif, &block) == GIF_ERROR) Damaged("an extension is cut off");
    }
  }
  if (DGifGetImageDesc(gif) == GIF_ERROR) Damaged("the first frame is cut off");
}

// A file that has been read up to the pixels of its first frame.
struct FirstFrame {
  explicit FirstFrame(Rest* file) : gif(DGifOpen(file, ReadRest, nullptr)) {
    if (!gif) Damaged("the header is damaged");
    FindPixels(gif.get(), &transparent);
    canvas = {gif->SWidth, gif->SHeight};
    if (canvas.width == 0 || canvas.height == 0) canvas = {Place().Left + Place().Width, Place().Top + Place().Height};
  }

  const GifImageDesc& Place() const { return gif->Image; }
  bool CoversCanvas() const {
    return Place().Left == 0 && Place().Top == 0 && Place().Width >= canvas.width && Place().Height >= canvas.height;
  }

  Gif gif;
  int transparent = NO_TRANSPARENT_COLOR;  // index of the transparent colour
  Size canvas;
};

using Rgba = std::array<std::uint8_t, 4>;

// Indices beyond the table are black.
std::array<Rgba, 256> ColoursOf(const GifFileType& gif, int transparent) {
  const ColorMapObject* map = gif.Image.ColorMap != nullptr ? gif.Image.ColorMap : gif.SColorMap;
  if (map == nullptr) Damaged("there is no colour table");
  std::array<Rgba, 256> colours = {};
  for (int i = 0; i < 256; ++i) {
    const GifColorType colour = i < map->ColorCount ? map->Colors[i] : GifColorType{};
    const std::uint8_t alpha = i == transparent ? 0 : 255;
    colours[static_cast<std::size_t>(i)] = {colour.Red, colour.Green, colour.Blue, alpha};
  }
  return colours;
}

// The rows of a frame in the order in which they are stored.
std::vector<int> RowOrder(int height, bool isInterlaced) {
  constexpr std::array<std::array<int, 2>, 4> kPasses = {{{0, 8}, {4, 8}, {2, 4}, {1, 2}}};
  std::vector<int> order;
  if (!isInterlaced) {
    for (int y = 0; y < height; ++y) order.push_back(y);
    return order;
  }
  for (const auto& [start, step] : kPasses) {
    for (int y = start; y < height; y += step) order.push_back(y);
  }
  return order;
}

class GifDecoder : public Decoder {
 public:
  explicit GifDecoder(const Input& input) : file_(input.ReadAll(kMaxFileBytes)) {
    Rest rest = Whole();
    const FirstFrame frame(&rest);
    CheckDecodedSize({frame.Place().Width, frame.Place().Height});
    CheckDecodedSize(frame.canvas);
    header_.stored = frame.canvas;
  }

  const Header& Head() const override { return header_; }
  bool IsAnimated() const override { return HasSecondFrame(Whole()); }
  Picture Decode(Size atLeast) override;

 private:
  Rest Whole() const { return {file_.data(), file_.size()}; }

  std::vector<std::uint8_t> file_;
  Header header_;
};

// The rest of the canvas is transparent.
Picture GifDecoder::Decode(Size /*atLeast*/) {
  Rest rest = Whole();
  const FirstFrame frame(&rest);
  const GifImageDesc& place = frame.Place();
  const std::array<Rgba, 256> colours = ColoursOf(*frame.gif, frame.transparent);
  Picture picture = BlankPicture(Model::kRgb, frame.transparent >= 0 || !frame.CoversCanvas(), frame.canvas);
  const std::size_t channels = picture.channels.size();
  const int visible = std::clamp(frame.canvas.width - place.Left, 0, place.Width);
  std::vector<GifPixelType> indices(static_cast<std::size_t>(place.Width));
  std::vector<std::uint8_t> line(static_cast<std::size_t>(visible) * channels);
  bool isDecoded = false;
  for (const int row : RowOrder(place.Height, place.Interlace)) {
    if (DGifGetLine(frame.gif.get(), indices.data(), place.Width) == GIF_ERROR) break;
    isDecoded = true;
    if (place.Top + row >= frame.canvas.height || visible == 0) continue;
    for (std::size_t x = 0; x < static_cast<std::size_t>(visible); ++x) {
      std::memcpy(&line[x * channels], colours[indices[x]].data(), channels);
    }
    SplitRow(line.data(), visible, place.Left, place.Top + row, &picture);
  }
  if (!isDecoded) Damaged("there is not even one row of pixels");
  return picture;
}

}  // namespace

std::unique_ptr<Decoder> OpenGif(const Input& input) {
  return std::make_unique<GifDecoder>(input);
}

}  // namespace tavithumb::maker
