#version 410 core

// The lighting of Mesh.frg applied to the texture's colour.
in vec3 eyePosition;
in vec2 texCoord;

uniform vec4 light1Direction;
uniform vec4 light2Direction;
uniform sampler2D tex;

out vec4 fragColor;

const float AMBIENT = 0.2;
const float KEY_WEIGHT = 0.75;
const float FILL_WEIGHT = 0.35;

void main() {
    vec3 normal = normalize(cross(dFdx(eyePosition), dFdy(eyePosition)));
    if (dot(normal, eyePosition) > 0.0) {
        normal = -normal;
    }
    float diffuse = KEY_WEIGHT * max(dot(normal, normalize(light1Direction.xyz)), 0.0) +
                    FILL_WEIGHT * max(dot(normal, normalize(light2Direction.xyz)), 0.0);
    vec4 surface = texture(tex, texCoord);
    fragColor = vec4(surface.rgb * min(AMBIENT + diffuse, 1.0), surface.a);
}
