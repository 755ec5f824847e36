// SPDX-License-Identifier: GPL-3.0-or-later
// The HTML page of a folder for browsers without JavaScript.
#include "system/text.h"
#include "thumbs/sizes.h"
#include "web/listing.h"
#include "web/target.h"

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

std::string Tile(const ListedFile& file, const std::string& prefix) {
  const std::string thumb = prefix + "/thumb/" + file.url;
  const std::string content = Picture(file, thumb) + "<span class=\"name\">" + Escaped(file.name) + "</span>";
  if (file.isVideo && !file.hasScreenshot) return "<li><span class=\"tile\">" + content + "</span></li>\n";
  const std::string address = file.HasOriginal() ? prefix + "/original/" + file.url : thumb + "?size=large";
  return "<li><a class=\"tile\" href=\"" + address + "\">" + content + "</a></li>\n";
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
    for (const ListedFolder& folder : listing.folders) {
      page += "<li>" + Link(list + folder.url, Escaped(folder.name)) + "</li>\n";
    }
    page += "</ul>\n";
  }
  if (!listing.files.empty()) {
    page += "<ul class=\"grid\">\n";
    for (const ListedFile& file : listing.files) page += Tile(file, base);
    page += "</ul>\n";
  }
  if (listing.folders.empty() && listing.files.empty()) page += "<p class=\"note\">There are no photos here.</p>\n";
  if (listing.unreadable > 0) {
    page += "<p class=\"note\">Folders that cannot be read: " + std::to_string(listing.unreadable) + "</p>\n";
  }
  return page + "</main>\n</body>\n</html>\n";
}

}  // namespace tavithumb::apps::web
