// SPDX-License-Identifier: GPL-3.0-or-later
// The HTML page of a folder for browsers without JavaScript.
#include "system/text.h"
#include "thumbs/sizes.h"
#include "web/listing.h"

namespace tavithumb::apps::web {
namespace {

// Text that is safe between tags and in attributes.
std::string Escaped(const std::string& text) {
  std::string escaped;
  for (const char letter : Printable(text)) {
    switch (letter) {
      case '&':
        escaped += "&amp;";
        break;
      case '<':
        escaped += "&lt;";
        break;
      case '>':
        escaped += "&gt;";
        break;
      case '"':
        escaped += "&quot;";
        break;
      default:
        escaped += letter;
    }
  }
  return escaped;
}

std::string Link(const std::string& address, const std::string& content) {
  return "<a href=\"" + address + "\">" + content + "</a>";
}

std::string Crumbs(const Listing& listing, const std::string& list) {
  std::string crumbs = "<li>" + Link(list, "All") + "</li>";
  std::string url;
  for (const std::string& name : listing.path) {
    url += (url.empty() ? "" : "/") + UrlEncoded(name);
    crumbs += "<li>" + Link(list + url, Escaped(name)) + "</li>";
  }
  return "<nav aria-label=\"Folders\"><ol class=\"crumbs\">" + crumbs + "</ol></nav>";
}

std::string Picture(const ListedFile& file, const std::string& thumb) {
  if (file.isVideo && !file.hasScreenshot) return "<span class=\"placeholder\">Video</span>";
  const std::string side = std::to_string(SideOf("medium"));
  return "<img src=\"" + thumb + "?size=medium\" width=\"" + side + "\" height=\"" + side +
         "\" alt=\"\" loading=\"lazy\">";
}

// What a browser shows itself, else a large thumbnail; a video that it does not play can only be downloaded.
std::string Tile(const ListedFile& file, const std::string& prefix) {
  const std::string thumb = prefix + "/thumb/" + file.url;
  const std::string original = prefix + "/original/" + file.url;
  const std::string content =
      Picture(file, thumb) + "<span class=\"name\" dir=\"auto\">" + Escaped(file.name) + "</span>";
  const bool hasThumb = !file.isVideo || file.hasScreenshot;
  const std::string address = file.HasOriginal() ? original : thumb + "?size=large";
  const std::string tile = file.HasOriginal() || hasThumb
                               ? "<a class=\"tile\" href=\"" + address + "\">" + content + "</a>"
                               : "<span class=\"tile\">" + content + "</span>";
  return "<li>" + tile + "<a class=\"download\" href=\"" + original + "?download=1\" aria-label=\"Download " +
         Escaped(file.name) + "\">Download</a></li>\n";
}

std::string FileCount(std::size_t count) {
  return std::to_string(count) + (count == 1 ? " file" : " files");
}

std::string Folder(const ListedFolder& folder, const std::string& prefix) {
  const std::string cover = folder.cover.empty()
                                ? ""
                                : "<img src=\"" + prefix + "/thumb/" + folder.cover +
                                      "?size=small\" width=\"48\" height=\"48\" alt=\"\" loading=\"lazy\">";
  const std::string count =
      folder.photos.value_or(0) == 0 ? "" : "<span class=\"count\">" + FileCount(*folder.photos) + "</span>";
  return "<li>" +
         Link(prefix + "/list/" + folder.url,
              cover + "<span class=\"name\" dir=\"auto\">" + Escaped(folder.name) + "</span>" + count) +
         "</li>\n";
}

std::string Note(const std::string& text) {
  return "<p class=\"note\">" + Escaped(text) + "</p>\n";
}

std::string Notes(const Listing& listing) {
  std::string notes;
  if (listing.folders.empty() && listing.files.empty()) notes += Note("There are no photos here.");
  if (listing.unreadable > 0) notes += Note("Folders that cannot be read: " + std::to_string(listing.unreadable));
  if (listing.notStored && !listing.files.empty()) {
    notes += Note("New thumbnails of a photo here are not stored: " + *listing.notStored + ".");
  }
  return notes;
}

}  // namespace

std::string ListAsHtml(const Listing& listing, const std::string& prefix) {
  const std::string base = Escaped(prefix);
  const std::string list = base + "/list/";
  std::string page =
      "<!DOCTYPE html>\n<html lang=\"en\">\n<head>\n<meta charset=\"utf-8\">\n"
      "<meta name=\"viewport\" content=\"width=device-width, initial-scale=1\">\n<title>" +
      Escaped(listing.path.empty() ? "Photos" : listing.path.back()) + "</title>\n<link rel=\"stylesheet\" href=\"" +
      base + "/page.css\">\n<link rel=\"icon\" href=\"" + base +
      "/icon.svg\">\n</head>\n<body class=\"list\">\n<header><h1>Photos</h1>" + Crumbs(listing, list) +
      "</header>\n<main>\n";
  if (!listing.folders.empty()) {
    page += "<ul class=\"folders\">\n";
    for (const ListedFolder& folder : listing.folders) page += Folder(folder, base);
    page += "</ul>\n";
  }
  if (!listing.files.empty()) {
    page += "<ul class=\"grid\">\n";
    for (const ListedFile& file : listing.files) page += Tile(file, base);
    page += "</ul>\n";
  }
  return page + Notes(listing) + "</main>\n</body>\n</html>\n";
}

}  // namespace tavithumb::apps::web
