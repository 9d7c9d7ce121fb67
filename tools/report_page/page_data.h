// The data of the round's page: one JSON object that the page's script
// shows, and the place where what later rounds record slots in.
//
// Members (format 1): "scenario", "description", "exit_code"; "summary"
// (rows [figure, value]), "problems", "versions_not_kept"; "log" (state:
// "read", "none", "damaged", "other_round" or "too_large", and a note);
// "timeline" (lane names, and per event its time in µs, lane and text);
// "figures" (round_figures.h); "lasers" (per laser the plane fit's points
// and residuals by picture distance, plane_points.h, with "source":
// "recomputed" while the round does not record them); "camera" (the camera
// the computing nodes used; "recovered" and "grid" stay null until a round
// computes a camera, and the camera-parameter node's last answer);
// "pictures" (picture by picture: what the report says of it, the picture
// as a data: URI or why it cannot be shown, the stripe cut's findings and
// marks); "legend" (the marks of the stripe cut's overlay, as
// stripe-inspect draws them).
#ifndef LASERCALI_TOOLS_REPORT_PAGE_PAGE_DATA_H_
#define LASERCALI_TOOLS_REPORT_PAGE_PAGE_DATA_H_

#include <string>

#include "tools/report_page/round_page.h"

namespace reportpage {

inline constexpr int kPageFormat = 1;

std::string PageData(const RoundPage& round);

}  // namespace reportpage

#endif  // LASERCALI_TOOLS_REPORT_PAGE_PAGE_DATA_H_
