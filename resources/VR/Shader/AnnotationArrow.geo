#version 410 core

// An annotation's arrow: one world-space segment from the label down to the annotated place, widened on
// screen to lineWidth pixels and ended by an arrowhead of arrowLength x arrowWidth pixels whose tip sits on
// the place. The line keeps its pixel width at any distance, so a far annotation still shows its arrow.
layout(lines) in;
layout(triangle_strip, max_vertices = 7) out;

uniform mat4 worldToHead;
uniform mat4 headToEye;
uniform mat4 projection;
uniform vec2 viewport;
uniform float arrowLength;
uniform float arrowWidth;
uniform float lineWidth;

// Moves a clip-space position by a pixel offset without changing its depth.
vec4 offsetPixels(vec4 clip, vec2 pixels) {
    return vec4(clip.xy + pixels * 2.0 / viewport * clip.w, clip.zw);
}

void main() {
    mat4 worldToClip = projection * headToEye * worldToHead;
    vec4 start = worldToClip * gl_in[0].gl_Position;
    vec4 tip = worldToClip * gl_in[1].gl_Position;

    // Clip against the near plane before dividing: an end behind the eye would flip across the screen.
    float startSide = start.z + start.w;
    float tipSide = tip.z + tip.w;
    if (startSide < 0.0 && tipSide < 0.0) {
        return;
    }
    bool tipVisible = tipSide >= 0.0;
    if (startSide < 0.0) {
        start = mix(start, tip, startSide / (startSide - tipSide));
    } else if (!tipVisible) {
        tip = mix(start, tip, startSide / (startSide - tipSide));
    }

    vec2 startPixels = start.xy / start.w * viewport * 0.5;
    vec2 tipPixels = tip.xy / tip.w * viewport * 0.5;
    vec2 along = tipPixels - startPixels;
    float pixelLength = max(length(along), 1e-4);
    vec2 direction = along / pixelLength;
    vec2 side = vec2(-direction.y, direction.x);

    // The head is never longer than the arrow itself, so a short arrow is all head.
    float headLength = tipVisible ? min(arrowLength, pixelLength) : 0.0;
    // The head's base lies at the tip's depth: over a few pixels the difference cannot be seen.
    vec2 baseNdc = (tipPixels - direction * headLength) / (viewport * 0.5);
    vec4 shaftEnd = vec4(baseNdc * tip.w, tip.zw);

    vec2 halfLine = side * lineWidth * 0.5;
    gl_Position = offsetPixels(start, halfLine);
    EmitVertex();
    gl_Position = offsetPixels(start, -halfLine);
    EmitVertex();
    gl_Position = offsetPixels(shaftEnd, halfLine);
    EmitVertex();
    gl_Position = offsetPixels(shaftEnd, -halfLine);
    EmitVertex();
    EndPrimitive();

    if (headLength > 0.0) {
        vec2 halfHead = side * arrowWidth * 0.5;
        gl_Position = offsetPixels(shaftEnd, halfHead);
        EmitVertex();
        gl_Position = offsetPixels(shaftEnd, -halfHead);
        EmitVertex();
        gl_Position = tip;
        EmitVertex();
        EndPrimitive();
    }
}
