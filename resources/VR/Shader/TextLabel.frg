#version 410 core

// A text label: the single-channel texture holds the glyphs' coverage. The plate behind the text is white
// at backgroundOpacity; the glyphs are drawn opaque in the foreground colour.
uniform sampler2D tex;
uniform float backgroundOpacity;
uniform vec4 foregroundColor;

in vec2 texCoord;
out vec4 color;

void main() {
    float coverage = texture(tex, texCoord).r;
    color = mix(vec4(1.0, 1.0, 1.0, backgroundOpacity), vec4(foregroundColor.rgb, 1.0), coverage);
}
