#version 410 core

// The tablet's page. The host hands its page over top row first, so flipImage turns it upright on a quad
// whose texture coordinates start at the bottom. drawLaserDot marks the page's centre, for checking the
// tablet's orientation by eye.
uniform sampler2D tex;
uniform bool flipImage;
uniform bool drawLaserDot;

in vec2 texCoord;
out vec4 color;

void main() {
    vec2 page = flipImage ? vec2(texCoord.x, 1.0 - texCoord.y) : texCoord;
    color = vec4(texture(tex, page).rgb, 1.0);
    if (drawLaserDot && distance(texCoord, vec2(0.5)) < 0.01) {
        color = vec4(1.0, 0.0, 0.0, 1.0);
    }
}
