#version 410 core

// While a teleport is aimed the line is cut into bright and faint dashes that run from the controller
// towards the target; otherwise it is its plain opaque colour. Output is premultiplied.
in vec4 lineColor;
in float distanceFromStart;

uniform bool animate;
// Where the animation stands in its period, in [0, 1).
uniform float timeStep;

out vec4 fragColor;

const float DASH_LENGTH = 0.2;
// Whole dashes per period, so that the pattern is seamless when timeStep wraps to 0.
const float DASHES_PER_PERIOD = 10.0;
const float FAINT = 0.35;

void main() {
    if (!animate) {
        fragColor = lineColor;
        return;
    }
    float phase = fract(distanceFromStart / DASH_LENGTH - timeStep * DASHES_PER_PERIOD);
    fragColor = lineColor * (phase < 0.5 ? 1.0 : FAINT);
}
