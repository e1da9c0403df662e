#version 410 core

// The label of a segment: a rectangle standing on the segment's middle, upright in the head's frame so that
// both eyes see the same flat plate facing the user; standing above the line keeps the line from crossing
// the text. Its height covers a fixed angle (height, as a tangent), its width is width times the share of
// the label texture the text fills.
layout(lines) in;
layout(triangle_strip, max_vertices = 4) out;

uniform mat4 worldToHead;
uniform mat4 headToEye;
uniform mat4 projection;
uniform float width;
uniform float height;
uniform float texWidthProportion;

out vec2 texCoord;

void main() {
    vec4 middle = worldToHead * (0.5 * (gl_in[0].gl_Position + gl_in[1].gl_Position));
    if (middle.z >= 0.0) {
        return;
    }
    float distance = length(middle.xyz);
    // Pulled a little towards the head, which keeps it where it is on screen but in front of its own line.
    vec2 halfSize = 0.5 * distance * vec2(width * texWidthProportion, height);
    vec3 centre = middle.xyz * 0.99 + vec3(0.0, 1.1 * halfSize.y, 0.0);
    mat4 headToClip = projection * headToEye;
    for (int corner = 0; corner < 4; ++corner) {
        vec2 side = vec2(float(corner & 1), float(corner >> 1));
        vec3 p = centre + vec3((side * 2.0 - 1.0) * halfSize, 0.0);
        gl_Position = headToClip * vec4(p, 1.0);
        texCoord = vec2(side.x * texWidthProportion, side.y);
        EmitVertex();
    }
    EndPrimitive();
}
