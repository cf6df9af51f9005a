#include "toolbox/movie/edit_list.h"

#include <algorithm>
#include <cmath>
#include <utility>

namespace toolbox {
namespace {

bool Continues(const Edit& first, const Edit& second, Clock clock) {
  if (first.IsEmpty() || second.IsEmpty()) return first.IsEmpty() && second.IsEmpty();
  return first.rate == second.rate && second.mediaTime == first.ShownAt(first.duration, clock);
}

// Removes the first `length` movie units of the edit.
void CutStart(Edit& edit, MovieTime length, Clock clock) {
  if (!edit.IsEmpty()) edit.mediaTime = edit.ShownAt(length, clock);
  edit.start += length;
  edit.duration = edit.duration - length;
}

// The new rate of an edit whose length changes from `before` to `now` while it shows the same
// media. If it is close to a rate that a file can state, it is rounded to that. So stretching an
// edit and stretching it back restores its rate.
double Stretched(double rate, MovieTime before, MovieTime now) {
  constexpr double kFixed = 65536, kSame = 1e-6;
  if (before == now) return rate;
  rate *= static_cast<double>(before.units) / static_cast<double>(now.units);
  const double stated = std::round(rate * kFixed);
  return std::fabs(rate * kFixed - stated) < kSame ? stated / kFixed : rate;
}

}  // namespace

MovieTime EditList::Offset() const {
  return !edits_.empty() && edits_.front().IsEmpty() ? edits_.front().duration : MovieTime{};
}

void EditList::Add(Edit edit, Clock clock) {
  if (edit.duration.units <= 0) return;
  if (edit.start > Duration()) {
    Add({Duration(), edit.start - Duration(), Edit::kNothing, 1.0}, clock);
  }
  if (!edits_.empty() && Continues(edits_.back(), edit, clock)) {
    edits_.back().duration += edit.duration;
  } else {
    edits_.push_back(edit);
  }
}

void EditList::Append(MovieTime duration, MediaTime mediaTime, double rate, Clock clock) {
  Add({Duration(), duration, mediaTime, rate}, clock);
}

void EditList::AppendMedia(MediaTime mediaTime, MediaTime length, double rate, Clock clock) {
  if (!edits_.empty() && !edits_.back().IsEmpty() && edits_.back().rate == rate) {
    Edit& last = edits_.back();
    const MediaTime shown = mediaTime - last.mediaTime;
    if (shown.units > 0 && clock.Lasting(shown, rate) == last.duration) {
      last.duration = clock.Lasting(shown + length, rate);
      return;
    }
  }
  Append(std::max(clock.Lasting(length, rate), MovieTime{1}), mediaTime, rate, clock);
}

std::vector<Edit>::iterator EditList::Split(MovieTime at, Clock clock) {
  const auto found = std::ranges::lower_bound(edits_, at, {}, &Edit::End);
  if (found == edits_.end() || found->start >= at) return found;
  if (found->End() == at) return found + 1;
  Edit rest = *found;
  CutStart(rest, at - rest.start, clock);
  found->duration = at - found->start;
  return edits_.insert(found + 1, rest);
}

void EditList::Insert(const EditList& other, MovieTime at, MovieTime length, Clock clock) {
  const auto cut = Split(at, clock);
  const std::vector<Edit> after(cut, edits_.end());
  edits_.erase(cut, edits_.end());
  for (Edit edit : other.edits_) {
    edit.start += at;
    Add(edit, clock);
  }
  for (Edit edit : after) {
    edit.start += length;
    Add(edit, clock);
  }
}

void EditList::Delete(MovieTime from, MovieTime length, Clock clock) {
  // Not in one expression: begin() must be taken after Split, which may move the edits.
  const auto cut = Split(from, clock);
  const auto first = cut - edits_.begin();
  const auto last = Split(from + length, clock);
  const auto next = edits_.erase(edits_.begin() + first, last);
  std::for_each(next, edits_.end(), [length](Edit& edit) { edit.start = edit.start - length; });
  if (first != 0 && next != edits_.end() && Continues(next[-1], *next, clock)) {
    next[-1].duration += next->duration;
    edits_.erase(next);
  }
  TrimEnd();
}

void EditList::Scale(MovieTime from, MovieTime length, MovieTime newLength, Clock clock) {
  const MovieTime end = from + length;
  Split(from, clock);
  Split(end, clock);
  const auto place = [&](MovieTime time) {
    if (time <= from) return time;
    if (time >= end) return time + newLength - length;
    return from + MovieTime{Rescale((time - from).units, length.units, newLength.units)};
  };
  MapBoundaries(place, true, clock);
}

void EditList::EndWithMedia(MediaTime end, Clock clock) {
  // How long an edit shows media that exist.
  const auto shown = [&](const Edit& edit) {
    if (edit.IsEmpty() || edit.rate == 0) return edit.duration;
    const MediaTime left = std::max(end - edit.mediaTime, MediaTime{});
    return std::min(edit.duration, clock.Lasting(left, edit.rate, Rounding::kUp));
  };
  const auto isShown = [&](const Edit& edit) { return shown(edit) == edit.duration; };
  if (std::ranges::all_of(edits_, isShown)) return;
  for (const Edit& edit : std::exchange(edits_, {})) {
    Append(shown(edit), edit.mediaTime, edit.rate, clock);
    Append(edit.duration - shown(edit), Edit::kNothing, 1.0, clock);
  }
  TrimEnd();
}

EditList EditList::Segment(MovieTime from, MovieTime length, Clock clock) const {
  EditList segment;
  const MovieTime end = from + length;
  const auto first = std::ranges::upper_bound(edits_, from, {}, &Edit::End);
  for (auto edit = first; edit != edits_.end() && edit->start < end; ++edit) {
    Edit part = *edit;
    if (part.start < from) CutStart(part, from - part.start, clock);
    part.duration = std::min(part.duration, end - part.start);
    part.start = part.start - from;
    segment.Add(part, clock);
  }
  segment.TrimEnd();
  return segment;
}

void EditList::MapBoundaries(const std::function<MovieTime(MovieTime)>& place, bool keepsSpan,
                             Clock clock) {
  for (Edit edit : std::exchange(edits_, {})) {
    const MovieTime length = edit.duration;
    const MovieTime end = place(edit.End());
    edit.start = place(edit.start);
    edit.duration = end - edit.start;
    if (edit.duration.units <= 0) continue;
    if (keepsSpan && !edit.IsEmpty()) edit.rate = Stretched(edit.rate, length, edit.duration);
    Add(edit, clock);
  }
  TrimEnd();
}

void EditList::TrimEnd() {
  if (!edits_.empty() && edits_.back().IsEmpty()) edits_.pop_back();
}

void EditList::MapMedia(const std::function<MediaTime(MediaTime)>& place) {
  for (Edit& edit : edits_) {
    if (!edit.IsEmpty()) edit.mediaTime = place(edit.mediaTime);
  }
}

}  // namespace toolbox
