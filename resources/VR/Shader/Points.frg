#version 410 core

// Square points cost nothing extra. Set ROUND_POINTS to 1 to cut them to discs at the price of one
// discard test per fragment.
#define ROUND_POINTS 0

in vec3 pointColor;

out vec4 fragColor;

void main() {
#if ROUND_POINTS
    vec2 fromCentre = gl_PointCoord - vec2(0.5);
    if (dot(fromCentre, fromCentre) > 0.25) {
        discard;
    }
#endif
    fragColor = vec4(pointColor, 1.0);
}
