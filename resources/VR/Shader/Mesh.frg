#version 410 core

// Two-sided diffuse lighting in eye space. The host's normals do not reach the GPU, so each fragment takes
// its triangle's flat normal from how the eye-space position changes across the screen.
in vec3 eyePosition;
in vec3 vertexColor;

uniform vec4 light1Direction;
uniform vec4 light2Direction;

out vec4 fragColor;

const float AMBIENT = 0.2;
const float KEY_WEIGHT = 0.75;
const float FILL_WEIGHT = 0.35;

void main() {
    vec3 normal = normalize(cross(dFdx(eyePosition), dFdy(eyePosition)));
    // Both faces are lit: the normal always points at the viewer, who sits at the eye-space origin.
    if (dot(normal, eyePosition) > 0.0) {
        normal = -normal;
    }
    float diffuse = KEY_WEIGHT * max(dot(normal, normalize(light1Direction.xyz)), 0.0) +
                    FILL_WEIGHT * max(dot(normal, normalize(light2Direction.xyz)), 0.0);
    fragColor = vec4(vertexColor * min(AMBIENT + diffuse, 1.0), 1.0);
}
