#version 410 core

// Widens each segment on screen into a band of lineWidth pixels, whatever its distance, and puts arrow
// heads (arrowLength by arrowWidth pixels, tips on the end points) at the ends that showArrowHeads names:
// bit 0 the segment's first point, bit 1 its second. Points arrive in world coordinates.
layout(lines) in;
layout(triangle_strip, max_vertices = 10) out;

uniform mat4 worldToHead;
uniform mat4 headToEye;
uniform mat4 projection;
uniform vec2 viewport;
uniform float lineWidth;
uniform float arrowLength;
uniform float arrowWidth;
uniform int showArrowHeads;

// Distance inside GL's near clip plane (z >= -w).
float nearDistance(vec4 c) {
    return c.z + c.w;
}

// A clip-space point moved by a pixel offset on screen; scaling by w keeps the offset constant after the
// perspective divide and leaves depth interpolation intact.
vec4 shifted(vec4 c, vec2 pixels) {
    return vec4(c.xy + pixels * 2.0 / viewport * c.w, c.zw);
}

// The point that lies `share` of the way from a to b on screen; clip-space interpolation alone follows
// world distances, which perspective shortens unevenly.
vec4 atScreenShare(vec4 a, vec4 b, float share) {
    return mix(a, b, share * a.w / ((1.0 - share) * b.w + share * a.w));
}

void arrowHead(vec4 tip, vec4 base, vec2 normal) {
    gl_Position = tip;
    EmitVertex();
    gl_Position = shifted(base, normal * (0.5 * arrowWidth));
    EmitVertex();
    gl_Position = shifted(base, normal * (-0.5 * arrowWidth));
    EmitVertex();
    EndPrimitive();
}

void main() {
    mat4 worldToClip = projection * headToEye * worldToHead;
    vec4 c0 = worldToClip * gl_in[0].gl_Position;
    vec4 c1 = worldToClip * gl_in[1].gl_Position;

    // Segments reaching behind the eye are cut at the near plane first: the perspective divide of a point
    // behind the eye would mirror it across the screen. A cut end gets no arrow head.
    float d0 = nearDistance(c0);
    float d1 = nearDistance(c1);
    if (d0 < 0.0 && d1 < 0.0) {
        return;
    }
    int arrows = showArrowHeads;
    if (d0 < 0.0) {
        c0 = mix(c0, c1, d0 / (d0 - d1));
        arrows &= ~1;
    } else if (d1 < 0.0) {
        c1 = mix(c0, c1, d0 / (d0 - d1));
        arrows &= ~2;
    }

    vec2 along = (c1.xy / c1.w - c0.xy / c0.w) * 0.5 * viewport;
    float pixelLength = length(along);
    vec2 direction = pixelLength > 1e-4 ? along / pixelLength : vec2(1.0, 0.0);
    vec2 normal = vec2(-direction.y, direction.x);
    vec2 halfWidth = normal * (0.5 * lineWidth);

    gl_Position = shifted(c0, halfWidth);
    EmitVertex();
    gl_Position = shifted(c0, -halfWidth);
    EmitVertex();
    gl_Position = shifted(c1, halfWidth);
    EmitVertex();
    gl_Position = shifted(c1, -halfWidth);
    EmitVertex();
    EndPrimitive();

    // Short segments get shorter heads so the two never cross.
    float share = pixelLength > 1e-4 ? min(arrowLength / pixelLength, 0.5) : 0.0;
    if ((arrows & 1) != 0) {
        arrowHead(c0, atScreenShare(c0, c1, share), normal);
    }
    if ((arrows & 2) != 0) {
        arrowHead(c1, atScreenShare(c1, c0, share), normal);
    }
}
