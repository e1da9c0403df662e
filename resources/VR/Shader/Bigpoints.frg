#version 410 core

in vec3 pointColor;

out vec4 fragColor;

void main() {
    // Large squares read as blocks; discs look like the surface samples they are.
    vec2 fromCentre = gl_PointCoord - vec2(0.5);
    if (dot(fromCentre, fromCentre) > 0.25) {
        discard;
    }
    fragColor = vec4(pointColor, 1.0);
}
