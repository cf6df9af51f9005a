#include "toolbox/movie/edit_list.h"

#include <algorithm>
#include <cmath>
#include <utility>

namespace toolbox {
namespace {

bool Continues(const Edit& first, const Edit& second, Clock clock) {
  if (first.IsEmpty() || second.IsEmpty()) return first.IsEmpty() && second.IsEmpty();
  return first.rate == second.rate &&
         second.mediaTime == first.mediaTime + clock.Shown(first.duration, first.rate);
}

// The new rate of an edit whose length changes from `before` to `now` while it shows the same
// media. It is rounded to a rate that a file can state if it is close to one, so stretching an edit
// and back restores its rate.
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

std::size_t EditList::Split(MovieTime at, Clock clock) {
  const auto found = std::ranges::lower_bound(edits_, at, {}, &Edit::End);
  const auto index = static_cast<std::size_t>(found - edits_.begin());
  if (found == edits_.end() || found->start >= at) return index;
  if (found->End() == at) return index + 1;
  Edit rest = *found;
  const MovieTime kept = at - rest.start;
  rest.start = at;
  rest.duration = found->duration - kept;
  if (!rest.IsEmpty()) rest.mediaTime += clock.Shown(kept, rest.rate);
  found->duration = kept;
  edits_.insert(found + 1, rest);
  return index + 1;
}

void EditList::Insert(const EditList& other, MovieTime at, MovieTime length, Clock clock) {
  std::vector<Edit> after;
  if (at < Duration()) {
    // Split may move the edits: an iterator from before it is not valid.
    const auto index = static_cast<std::ptrdiff_t>(Split(at, clock));
    const auto from = edits_.begin() + index;
    after.assign(from, edits_.end());
    edits_.erase(from, edits_.end());
  }
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
  const auto first = static_cast<std::ptrdiff_t>(Split(from, clock));
  const auto last = static_cast<std::ptrdiff_t>(Split(from + length, clock));
  auto next = edits_.erase(edits_.begin() + first, edits_.begin() + last);
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
  const auto reachesBeyond = [&](const Edit& edit) {
    if (edit.IsEmpty() || edit.rate == 0) return false;
    const MediaTime left = std::max(end - edit.mediaTime, MediaTime{});
    return edit.duration > clock.Lasting(left, edit.rate, Rounding::kUp);
  };
  if (std::ranges::none_of(edits_, reachesBeyond)) return;
  for (const Edit& edit : std::exchange(edits_, {})) {
    MovieTime shown = edit.duration;
    if (reachesBeyond(edit)) {
      const MediaTime left = std::max(end - edit.mediaTime, MediaTime{});
      shown = clock.Lasting(left, edit.rate, Rounding::kUp);
    }
    Append(shown, edit.mediaTime, edit.rate, clock);
    Append(edit.duration - shown, Edit::kNothing, 1.0, clock);
  }
  TrimEnd();
}

EditList EditList::Segment(MovieTime from, MovieTime length, Clock clock) const {
  EditList segment;
  const MovieTime end = from + length;
  const auto first = std::ranges::upper_bound(edits_, from, {}, &Edit::End);
  for (auto edit = first; edit != edits_.end() && edit->start < end; ++edit) {
    Edit part = *edit;
    if (part.start < from) {
      const MovieTime cut = from - part.start;
      if (!part.IsEmpty()) part.mediaTime += clock.Shown(cut, part.rate);
      part.start = from;
      part.duration = part.duration - cut;
    }
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
    if (keepsSpan && !edit.IsEmpty()) {
      edit.rate = Stretched(edit.rate, length, edit.duration);
    }
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
