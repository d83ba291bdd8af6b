/*
Filter: sepia
Description: Brown tones, as in old photographs
Parameter: float amount; default 1; min 0; max 1
*/
void sepia(float amount) {
    vec3 c = gl_FragColor.rgb;
    vec3 brown = vec3(dot(c, vec3(0.393, 0.769, 0.189)), dot(c, vec3(0.349, 0.686, 0.168)),
                      dot(c, vec3(0.272, 0.534, 0.131)));
    gl_FragColor.rgb = mix(c, min(brown, 1.0), amount);
}
