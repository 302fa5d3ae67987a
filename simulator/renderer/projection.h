// A face in the picture. What is flat in the world is linear in the picture once it is divided by the depth: the
// inverse of the depth, and the place on the face times that inverse. So whether a face is met, and where, takes a
// few additions for each pixel, and nothing has to be clipped.
#pragma once

#include <optional>

#include "simulator/renderer/camera.h"
#include "simulator/renderer/faces.h"

namespace simulator {

struct Linear {
    float At(float x, float y) const { return origin + per_x * x + per_y * y; }

    float origin = 0.0f;
    float per_x = 0.0f;
    float per_y = 0.0f;
};

struct Projection {
    // Nothing for a face that is turned away.
    static std::optional<Projection> Of(const Face& face, const Camera& camera);

    // Where one looks onto the face, if one does there.
    struct Meeting {
        float inverse_depth;
        float u;
        float v;
        // Metres of the face that a pixel spans.
        float u_per_pixel;
        float v_per_pixel;
    };
    bool Covers(float x, float y) const;
    Meeting MeetingAt(float x, float y) const;

    // The pixels of the row at `y` whose middle the face covers: from `first` to before `end`.
    struct Span {
        std::uint32_t first;
        std::uint32_t end;
    };
    Span SpanOfRow(float y, std::uint32_t picture_width) const;

    Linear inverse_depth;
    // Times the inverse depth.
    Linear u;
    Linear v;
    // All of these are at least 0 where the face is.
    Linear bounds[6];
};

}  // namespace simulator
