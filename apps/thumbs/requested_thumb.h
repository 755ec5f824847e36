// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <tavithumb/libtavithumb.h>

#include <string>

#include "thumbs/reasons.h"
#include "thumbs/request.h"

namespace tavithumb::apps {

// The type of the source itself. Facts of a HEIF picture carry none; its name tells.
std::string SourceMimeType(const ThumbInfo& info, const std::string& path);

// A job for one request; one job serves one request only, so that nothing of an earlier one is left in it.
class RequestedThumb : public Thumb {
 public:
  // Throws as Thumb does.
  RequestedThumb(const std::string& path, const Request& request);

  // Asks for another size; what is known of the source stays known. For looking things up only: one job resolves one
  // request.
  void SetSize(const std::string& name);

  // Reads what SetSize() keeps. Throws as ExtractInBounds() does, but for facts that don't exist.
  void ReadFacts();

  // The thumbnail that Resolve() would store lies there already, up to date or not. Unlike FindStored(), which does as
  // the library does, these find what has been made of a source without facts.
  bool HasStored() const { return info_.IsThumbUptoDate(GetOnlineOutputDest()); }
  bool HasOutdated() const;

  // Whether Resolve() would make a thumbnail where none is stored, or answer with the source itself.
  bool IsServedBySource();

  // The name in the EA directory under which thumbnails of the source are made; other temporary names there begin
  // with it.
  std::string TemporaryEntry() const { return info_.GetBrovixTmpThumbEAName(); }

  // An up-to-date thumbnail that lies ready in one of the places that the options name. Makes and writes nothing.
  // Throws as ReadFacts() does.
  bool FindStored();

  // Finds or makes the answer. False when there is none, or when a full disk has cut it off, which is removed then;
  // throws as CalcOutputFile does, or FactsTooLarge.
  bool Resolve();

  // Whether a browser can show the source itself; OutputOriginalImage() then delivers it. Throws as FindStored does.
  bool HasShowableSource();

  bool IsSource() const { return outputFile_ == srcPath_; }

  // Resolve() has made the answer, which did not lie there before.
  bool IsMade() const { return isMade_; }

  // The answer is a file of this job alone, to be deleted after use. One that is stored beside the source is for
  // everybody, whatever IsNeedDelete() says.
  bool IsTemporary() const { return GetOutputType() == "BrovixVarTmp"; }

  // A source that is the answer is served as what it is, and is "Original" whichever way it became the answer.
  std::string MimeType() const { return IsSource() ? SourceMimeType(info_, srcPath_) : GetOutputMimeType(); }
  std::string OutputType() const { return IsSource() ? "Original" : GetOutputType(); }

  Attempt Failed() const { return {srcPath_, isVideo_, info_.IsGood()}; }

 private:
  void SetRequest();
  bool HasUsablePreview();
  void CheckFactsAreInBounds() const;
  bool FindOrMake();
  bool MakeTurned();
  void PreferAvatar();

  Request request_;
  bool isMade_ = false;
};

}  // namespace tavithumb::apps
