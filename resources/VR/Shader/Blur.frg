#version 410 core

// One direction of a separable box filter; two passes (horizontal, then vertical) blur the picture.
uniform sampler2D image;
uniform bool horizontal;
uniform int boxSize;

in vec2 texCoord;
out vec4 fragColor;

void main() {
    vec2 texel = 1.0 / vec2(textureSize(image, 0));
    vec2 direction = horizontal ? vec2(texel.x, 0.0) : vec2(0.0, texel.y);
    vec4 sum = vec4(0.0);
    for (int i = -boxSize; i <= boxSize; ++i) {
        sum += texture(image, texCoord + float(i) * direction);
    }
    fragColor = sum / float(2 * boxSize + 1);
}
