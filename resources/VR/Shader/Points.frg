#version 410 core

// Points of one or two pixels are drawn as they come; larger ones (the periphery's, the reduced batches')
// are cut to discs, which read as the surface samples they are rather than as blocks. The test is uniform
// across a draw, so small points pay nothing for it.
in vec3 pointColor;
flat in float roundPoint;

out vec4 fragColor;

void main() {
    if (roundPoint > 0.5) {
        vec2 fromCentre = gl_PointCoord - vec2(0.5);
        if (dot(fromCentre, fromCentre) > 0.25) {
            discard;
        }
    }
    fragColor = vec4(pointColor, 1.0);
}
